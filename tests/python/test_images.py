"""Image files: the C++ library's raw and BMP frames, float raws, flat-field streams, and their damage."""
import struct

import numpy as np
import pytest
from PIL import Image as PilImage

import grabsystem


def test_frames_the_library_saved_read_alike_as_raw_and_bmp_and_by_pillow(demo):
    raws = sorted(demo.glob("frame*.raw"))
    assert raws
    for raw in raws:
        image = grabsystem.read_image(str(raw))
        bmp = grabsystem.read_image(str(raw.with_suffix(".bmp")))
        pil = np.asarray(PilImage.open(raw.with_suffix(".bmp")).convert("L"))
        assert image.pixels.dtype == np.uint8 and image.pixels.base is image
        assert np.array_equal(image.pixels, pil) and np.array_equal(bmp.pixels, pil)
        assert image.info["frame_attr"] == bmp.info["frame_attr"]
        assert (image.info["width"], image.info["height"]) == pil.shape[::-1]


def test_images_written_from_numpy_decode_with_pillow_and_keep_their_information(tmp_path):
    rng = np.random.default_rng(3)
    info = {"cam_idx": 4, "frame_attr": 0xDEADBEEF, "resolution": (0.5, 0.25, 0.125),
            "img_alignment": {"width": 7, "height": 5, "offset_x": -2, "offset_y": 3}, "proc_log": [(1, "grab")]}
    for shape in ((31, 17), (9, 13, 3), (4, 6, 4)):
        pixels = rng.integers(0, 256, shape, dtype=np.uint8)
        grabsystem.write_image(str(tmp_path / "a.bmp"), pixels, "bmp", info)
        pil = np.asarray(PilImage.open(tmp_path / "a.bmp"))
        # The BMP holds B, G, R (and A, which Pillow drops).
        expected = pixels if pixels.ndim == 2 else pixels[..., [2, 1, 0]]
        assert np.array_equal(pil, expected)
        back = grabsystem.read_image(str(tmp_path / "a.bmp"))
        assert np.array_equal(back.pixels.reshape(pixels.shape), pixels)
        assert {k: back.info[k] for k in info} == info
    for dtype in (np.uint8, np.uint16, np.uint32):
        pixels = rng.integers(0, np.iinfo(dtype).max, (6, 5, 2), dtype=dtype)[:, ::-1]  # not contiguous
        grabsystem.write_image(str(tmp_path / "a.raw"), pixels, info={"cam_idx": 1})
        back = grabsystem.read_image(str(tmp_path / "a.raw"))
        assert back.pixels.dtype == dtype and np.array_equal(back.pixels, pixels)
    with pytest.raises(ValueError):
        grabsystem.write_image(str(tmp_path / "b.bmp"), np.zeros((3, 3), np.uint16), "bmp")
    with pytest.raises(KeyError):
        grabsystem.write_image(str(tmp_path / "b.raw"), np.zeros((3, 3), np.uint8), info={"camera": 1})


def test_float_raws_and_flat_field_streams_round_trip_and_parse_independently(tmp_path):
    rng = np.random.default_rng(5)
    for dtype, shape in ((np.float32, (5, 7)), (np.float64, (3, 4, 2))):
        values = rng.standard_normal(shape).astype(dtype)
        grabsystem.write_float_raw(str(tmp_path / "f.raw"), values, resolution=(0.5, 2.0))
        data = (tmp_path / "f.raw").read_bytes()
        version, width, height, channels = struct.unpack_from("<4I", data)
        assert (version, width, height, channels) == (1, shape[1], shape[0], 1 if len(shape) == 2 else shape[2])
        assert struct.unpack_from("<2d", data, 16) == (0.5, 2.0)
        assert np.array_equal(np.frombuffer(data, dtype, offset=32).reshape(values.shape), values)
        back = grabsystem.read_float_raw(str(tmp_path / "f.raw"))
        assert back.pixels.dtype == dtype and np.array_equal(back.pixels, values)
        assert back.info["resolution"][1:] == (0.5, 2.0)
    tables = [rng.integers(0, 4096, (4 + i, 6), dtype=np.uint16) for i in range(3)]
    grabsystem.write_ffc_tables(str(tmp_path / "t.ffc"), tables, infos=[{"cam_idx": i} for i in range(3)])
    back = grabsystem.read_ffc_tables(str(tmp_path / "t.ffc"))
    assert [t.info["cam_idx"] for t in back] == [0, 1, 2]
    assert all(np.array_equal(a.pixels, b) for a, b in zip(back, tables))


def test_damaged_image_files_raise_file_errors(tmp_path):
    pixels = np.arange(60, dtype=np.uint8).reshape(6, 10)
    grabsystem.write_image(str(tmp_path / "a.raw"), pixels)
    grabsystem.write_image(str(tmp_path / "a.bmp"), pixels, "bmp")
    grabsystem.write_float_raw(str(tmp_path / "f.raw"), pixels.astype(np.float32))
    grabsystem.write_ffc_tables(str(tmp_path / "t.ffc"), [pixels.astype(np.uint16)])
    cases = [("a.raw", grabsystem.read_image), ("a.bmp", grabsystem.read_image),
             ("f.raw", grabsystem.read_float_raw), ("t.ffc", grabsystem.read_ffc_tables)]
    for name, read in cases:
        data = (tmp_path / name).read_bytes()
        for cut in (0, 1, 2, 20, 40, 70):  # inside the header or the pixels
            (tmp_path / ("cut_" + name)).write_bytes(data[:cut])
            with pytest.raises(grabsystem.FileError) as error:
                read(str(tmp_path / ("cut_" + name)))
            assert error.value.filename.endswith("cut_" + name)
