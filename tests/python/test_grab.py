"""The grab path from Python: the pool, its counters, and the arm output manager."""
import threading

import numpy as np
import pytest

import grabsystem


def test_pool_takes_frames_from_any_buffer_and_lends_them_without_copies():
    pool = grabsystem.ImagePool(3, width=40, height=30)
    wide = np.random.default_rng(1).integers(0, 256, (30, 56), dtype=np.uint8)
    assert pool.push(wide[:, 8:48], frame_attr=7)  # a crop: the row gap from the stride
    flat = bytes(wide[:, :40].tobytes())
    assert pool.push(flat, 8, row_bytes=40, rows=30)
    padded = np.ascontiguousarray(wide[:, :44]).reshape(-1)
    assert pool.push(padded, 9, row_bytes=40, rows=30, row_gap=4)
    assert not pool.push(wide[:, :40])  # all three in use
    first, again = pool.get(0), pool.get(0)
    assert np.array_equal(first.pixels, wide[:, 8:48]) and first.frame_attr == 7
    assert np.shares_memory(first.pixels, again.pixels)  # both view the pool's image
    for serial in (1, 2):
        with pool.get(serial) as image:
            assert np.array_equal(image.pixels, wide[:, :40]) and image.frame_attr == 7 + serial
    assert pool.get(1) is None and pool.get(99) is None
    first.release()
    first.release()
    c = pool.counters
    assert (c["pushed"], c["refused_no_free_node"], c["released"], c["max_in_use"]) == (3, 1, 3, 3)
    assert c["bytes_copied"] == 3 * 40 * 30
    with pytest.raises(ValueError):
        pool.push(flat, row_bytes=40, rows=31)  # past the buffer
    with pytest.raises(ValueError):
        pool.push(wide[:, ::2])  # rows not contiguous
    pool.reset_counters()
    assert pool.counters["pushed"] == 0


def test_ring_pool_of_16_bit_frames_overwrites_the_oldest_under_concurrent_pushes():
    pool = grabsystem.ImagePool(2, width=8, height=4, bits=16, ring=True)
    frames = [np.full((4, 8), i, np.uint16) for i in range(200)]
    threads = [threading.Thread(target=lambda part: [pool.push(f, int(f[0, 0])) for f in part], args=(frames[k::2],))
               for k in range(2)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    c = pool.counters
    assert c["pushed"] + c["overwritten"] == 200 and c["overwritten"] == 198
    newest = pool.get(pool.next_serial - 1)
    assert newest.pixels.dtype == np.uint16 and (newest.pixels == newest.frame_attr).all()


def test_output_manager_counts_views_and_refuses_what_the_library_refuses(tmp_path):
    sin = np.random.default_rng(2).integers(0, 256, (8, 16, 24), dtype=np.uint8)
    white = np.zeros((2, 16, 24), np.uint8)
    manager = grabsystem.ArmOutputManager(compress_threads=2)
    assert manager.compress_threads == 2
    for view in range(3):
        assert manager.add_view(str(tmp_path / f"{view}.armraw"), view, sin, white, [0, 1], (1, 2, 2)) \
            == grabsystem.AddResult.OK
    assert manager.counters["written"] == 3 and manager.block_count == 1
    assert np.array_equal(grabsystem.read_arm_view(str(tmp_path / "2.armraw")).sin, sin)
    with pytest.raises(ValueError):
        manager.add_view(str(tmp_path / "x.armraw"), 9, sin, white, [0, 1], (1, 2, 3))  # 12 frames named, 8 given
    with pytest.raises(ValueError):
        manager.max_blocks = 0
    with pytest.raises(grabsystem.FileError):
        grabsystem.write_arm_view(str(tmp_path / "no" / "such" / "dir.armraw"), 0, sin, white, [0, 1], (1, 2, 2))
