"""Arm views and packages: what the C++ library wrote, read independently and by the module."""
import itertools

import lz4.block
import numpy as np
import pytest

import grabsystem
from conftest import decrypt, words


def records_by_lz4(data):
    """The frames of a view file, decoded by python-lz4 alone."""
    sin, white, width, height = words(data, 4, 4)
    frames, at = [], 1024
    for _ in range(sin + white):
        n = words(data, at + 4, 1)[0]
        raw = lz4.block.decompress(data[at + 64:at + 64 + n], uncompressed_size=width * height)
        frames.append(np.frombuffer(raw, np.uint8).reshape(height, width))
        at += 64 + n
    return np.stack(frames[:sin]), np.stack(frames[sin:])


def test_views_read_as_lz4_decodes_them_and_write_back_byte_for_byte(demo, tmp_path):
    for path in sorted((demo / "armraw").glob("*.armraw")):
        data = path.read_bytes()
        view = grabsystem.read_arm_view(str(path))
        sin, white = records_by_lz4(data)
        assert np.array_equal(view.sin, sin) and np.array_equal(view.white, white)
        assert view.sin.base is view and view.white.base is view  # no copy
        assert np.shares_memory(view.sin, view.sin)  # two arrays, one buffer
        assert view.cameras == list(data[36:36 + view.cam_count])
        lengths, at = [], 1024
        for _ in range(view.sin_frame_count + view.white_frame_count):
            lengths.append(words(data, at + 4, 1)[0])
            at += 64 + lengths[-1]
        assert list(view.record_lengths) == lengths
        # Written again from the arrays, on one thread and on three: the C++ file.
        for threads in (1, 3):
            again = tmp_path / f"{threads}.armraw"
            grabsystem.write_arm_view(str(again), int(path.stem), view.sin, view.white, view.cameras, view.sin_dims,
                                      compress_threads=threads)
            assert again.read_bytes() == data


def test_packages_read_as_openssl_and_lz4_decode_them_and_write_back_byte_for_byte(demo, tmp_path):
    image = (demo / "packages" / "image.dbg").read_bytes()
    package = grabsystem.read_package(str(demo / "packages" / "image.dbg"))
    version, count, jump = words(image, 0, 3)
    assert (package.general, package.version, package.jump_idx, len(package.records)) == (False, version, jump, count)
    plain = decrypt(image[12 + 20 * count:])
    at = 0
    for record, frames in zip(package.records, package.frames):
        assert frames.base is package
        size = record.frame_count * record.width * record.height
        assert frames.tobytes() == plain[at:at + size]
        at += size
    runs = [(f, r.cam_idx, r.group_idx) for r, f in zip(package.records, package.frames)]
    grabsystem.write_image_package(str(tmp_path / "i.dbg"), runs, jump_idx=package.jump_idx)
    assert (tmp_path / "i.dbg").read_bytes() == image

    general = (demo / "packages" / "general.dbg").read_bytes()
    package = grabsystem.read_package(str(demo / "packages" / "general.dbg"))
    version, flag, count = words(general, 0, 3)
    assert package.general and (package.version, len(package.records)) == (version, count)
    plain = decrypt(general[12 + 24 * count:])
    at = 0
    if flag == 1:
        n = words(plain, 0, 1)[0]
        assert package.project_file == plain[4:4 + n]
        at = 4 + n
    for record, frames in zip(package.records, package.frames):
        for frame in frames:
            n = words(plain, at, 1)[0]
            assert lz4.block.decompress(plain[at + 4:at + 4 + n], uncompressed_size=frame.size) == frame.tobytes()
            at += 4 + n
    runs = [(f, r.cam_idx, r.group_idx, r.jump_idx) for r, f in zip(package.records, package.frames)]
    grabsystem.write_general_package(str(tmp_path / "g.dbg"), runs, project_file=package.project_file)
    assert (tmp_path / "g.dbg").read_bytes() == general


def damaged(data):
    """Cuts at every boundary that matters and a few inside, and single flipped bytes."""
    for cut in sorted({0, 3, 11, 12, 35, 1023, 1024, 1087, 1088, len(data) // 2, len(data) - 1}):
        if cut < len(data):
            yield data[:cut]
    for at in (0, 4, 8, 12, 16, 20, 24, 1028, len(data) - 5):
        if at < len(data):
            yield data[:at] + bytes([data[at] ^ 0xA5]) + data[at + 1:]
    yield data + b"\0"


@pytest.mark.parametrize("name, read", [("armraw/0.armraw", grabsystem.read_arm_view),
                                        ("packages/image.dbg", grabsystem.read_package),
                                        ("packages/general.dbg", grabsystem.read_package)])
def test_damaged_captures_raise_file_errors_that_name_the_file(demo, tmp_path, name, read):
    path = tmp_path / "damaged"
    for data in damaged((demo / name).read_bytes()):
        path.write_bytes(data)
        try:
            result = read(str(path))
        except grabsystem.FileError as error:
            assert error.filename == str(path) and error.cause and str(path) in str(error)
        else:  # a flip that leaves a valid file (inside LZ4 literals, or an encrypted pixel)
            assert result is not None
    with pytest.raises(grabsystem.FileError, match="no such file"):
        read(str(tmp_path / "missing"))


def test_exports_and_extraction_match_the_trees_the_tool_wrote(demo, drive, tmp_path):
    grabsystem.export_packages([str(demo / "packages" / "image.dbg")], threads=2)
    exported = sorted(p.relative_to(drive) for p in drive.rglob("*.bmp"))
    assert exported
    for rel in exported:
        assert (drive / rel).read_bytes() == (demo / "D" / rel).read_bytes()

    extractor = grabsystem.ArmExtractor(threads=2)
    views = extractor.parse_arm_raw_files(str(demo / "armraw"))
    assert sorted(views) == [0, 1]
    failed = extractor.extract(str(tmp_path / "bmp"), [(str(demo / "armraw"), [7] + views + [5])])
    assert failed == [[7, 5]] and extractor.counters == {"extracted": (2, 0, 0), "failed": (2, 0, 0),
                                                      "files_failed": (0, 0, 0)}
    written = sorted(p.relative_to(tmp_path / "bmp") for p in (tmp_path / "bmp").rglob("*.bmp"))
    assert written == sorted(p.relative_to(demo / "armbmp") for p in (demo / "armbmp").rglob("*.bmp"))
    for rel in itertools.islice(written, 0, None, 7):
        assert (tmp_path / "bmp" / rel).read_bytes() == (demo / "armbmp" / rel).read_bytes()
    with pytest.raises(grabsystem.FileError):
        extractor.parse_arm_raw_files(str(tmp_path))


def test_contact_sheets_are_the_pictures_the_tool_writes(demo, tmp_path):
    import os
    import subprocess
    import warnings

    from PIL import Image as PilImage
    tool = os.environ["GRABSYS_TOOL"]
    for name, args in (("armraw/1.armraw", ["-t", "32"]), ("packages/general.dbg", ["--no-labels"]),
                       ("frame0.raw", ["--image-width", "40"])):
        subprocess.run([tool, "preview", str(demo / name), "-o", str(tmp_path / "s.png"), *args], check=True)
        options = {"-t": {"thumb_width": 32}, "--no-labels": {"labels": False}, "--image-width": {"image_width": 40}}
        sheet = grabsystem.contact_sheet(str(demo / name), **options[args[0]])
        assert sheet.shape[2] == 3 and np.array_equal(sheet, np.asarray(PilImage.open(tmp_path / "s.png")))
    (tmp_path / "views").mkdir()
    for view in (demo / "armraw").glob("*.armraw"):
        (tmp_path / "views" / view.name).write_bytes(view.read_bytes())
    (tmp_path / "views" / "5.armraw").write_bytes(b"short")
    subprocess.run([tool, "preview", str(tmp_path / "views"), "--index", "-o", str(tmp_path / "i.png")])
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        index = grabsystem.folder_sheet(str(tmp_path / "views"))
    assert np.array_equal(index, np.asarray(PilImage.open(tmp_path / "i.png")))
    assert any("view 5" in str(w.message) for w in caught)
    with pytest.raises(grabsystem.FileError):
        grabsystem.contact_sheet(str(tmp_path / "views" / "5.armraw"))
