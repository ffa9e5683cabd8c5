"""Every Python call that writes files, against a full disk, a write cut short and a folder that
refuses writes: through the library's fault-injecting Env, and as root on a real tmpfs. Each must
raise FileError naming a file it could not write and the cause, leave only whole files, and keep
counters that agree; write_image_package refuses the runs its placement cannot hold."""
import os
import subprocess

import numpy as np
import pytest

import grabsystem
import grabsystem._core

SIN = np.random.default_rng(1).integers(0, 255, (6, 24, 32), dtype=np.uint8)
WHITE = np.full((2, 24, 32), 200, np.uint8)


def extract(out, demo):
    extractor = grabsystem.ArmExtractor()
    try:
        extractor.extract(str(out / "tree"), [(str(demo / "armraw"), [0])])
    finally:
        extract.counters = extractor.counters


def add_view(out, demo):
    manager = grabsystem.ArmOutputManager()
    try:
        manager.add_view(str(out / "v.armraw"), 0, SIN, WHITE, [0, 1], (1, 1, 3))
    finally:
        add_view.save_failed = manager.counters["save_failed"]


WRITERS = {
    "write_image raw": lambda out, demo: grabsystem.write_image(str(out / "i.raw"), SIN[0], "raw", {"cam_idx": 2}),
    "write_image bmp": lambda out, demo: grabsystem.write_image(str(out / "i.bmp"), SIN[0], "bmp"),
    "write_float_raw": lambda out, demo: grabsystem.write_float_raw(str(out / "f.fraw"), SIN[0].astype(np.float32)),
    "write_ffc_tables": lambda out, demo: grabsystem.write_ffc_tables(str(out / "t.ffc"), [SIN[0].astype(np.uint16)] * 2),
    "write_arm_view": lambda out, demo: grabsystem.write_arm_view(str(out / "w.armraw"), 0, SIN, WHITE, [0, 1], (1, 1, 3)),
    "add_view": add_view,
    "write_image_package": lambda out, demo: grabsystem.write_image_package(str(out / "p.dbg"), [(SIN[:3], 0, 0), (SIN[3:], 1, 0)]),
    "write_general_package": lambda out, demo: grabsystem.write_general_package(str(out / "g.dbg"), [(SIN, 0, 0, 2)], b"<p/>"),
    "extract": extract,
    "export_packages": lambda out, demo: grabsystem.export_packages([str(demo / "packages" / "image.dbg")], threads=2),
}


def files(root):
    return {p.relative_to(root): p.read_bytes() for p in sorted(root.rglob("*")) if p.is_file() and p.name != "filler"}


@pytest.fixture
def out(tmp_path):
    """The folder every writer writes into; D: maps into it for the export."""
    grabsystem.set_drive_root(str(tmp_path / "out"))
    (tmp_path / "out").mkdir()
    yield tmp_path / "out"
    grabsystem.set_drive_root("")


def expect_reported(raised, name, clean, left, root):
    """A FileError naming a file under the folder, and nothing but whole files left."""
    assert str(root) in raised.value.filename, (name, raised.value)
    assert raised.value.cause, name
    assert all(clean.get(path) == data for path, data in left.items()), (name, sorted(left))
    assert len(left) < len(clean), name
    if name.startswith("extract"):
        # A view whose files failed still counts as extracted, as the system has it; one whose
        # output folder cannot be made is not started.
        counters = extract.counters
        assert (counters["extracted"][0], counters["files_failed"][0]) in ((1, 1), (0, 0)), counters
    if name == "add_view":
        assert add_view.save_failed == 1


@pytest.mark.parametrize("name", sorted(WRITERS))
def test_every_writer_raises_for_a_full_disk_a_short_write_and_a_refused_folder(name, out, demo):
    write = WRITERS[name]
    write(out, demo)
    clean = files(out)
    assert clean, name
    total = sum(len(data) for data in clean.values())
    faults = {
        "full disk": lambda f: f.fill_disk_after(total // 2),
        "write cut short": lambda f: f.short_write(1),
        "refused folder": lambda f: f.refuse_folder(str(out)),
    }
    for fault, inject in faults.items():
        for path in sorted(out.rglob("*"), reverse=True):
            path.unlink() if path.is_file() else path.rmdir()
        with grabsystem._core._FaultInjection() as injected:
            inject(injected)
            with pytest.raises(grabsystem.FileError) as raised:
                write(out, demo)
        assert "injected fault" in raised.value.cause, (name, fault, raised.value)
        expect_reported(raised, f"{name} on a {fault}", clean, files(out), out)


@pytest.mark.skipif(os.geteuid() != 0, reason="mounting a tmpfs needs root; the fault-injecting Env covers the rest")
@pytest.mark.parametrize("name", sorted(WRITERS))
def test_every_writer_raises_on_a_real_full_and_read_only_tmpfs(name, out, demo):
    write = WRITERS[name]
    write(out, demo)
    clean = files(out)
    total = sum(len(data) for data in clean.values())
    # Room for half of what the writer writes: a tmpfs of at least 64 KiB, filled up to that.
    size = max(65536, total // 2)
    for options, cause in ((f"size={size}", "No space left"), ("ro,size=64k", "Read-only")):
        for path in sorted(out.rglob("*"), reverse=True):
            path.unlink() if path.is_file() else path.rmdir()
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", options, "tmpfs", str(out)], capture_output=True)
        if mounted.returncode != 0:
            pytest.skip(f"cannot mount a tmpfs here: {mounted.stderr.decode().strip()}")
        if "ro" not in options:
            (out / "filler").write_bytes(bytes(size - total // 2 // 4096 * 4096))
        try:
            with pytest.raises(grabsystem.FileError) as raised:
                write(out, demo)
            left = files(out)
        finally:
            subprocess.run(["umount", "-l", str(out)], check=True)
        assert cause in raised.value.cause, (name, raised.value)
        expect_reported(raised, f"{name} on a tmpfs with {options}", clean, left, out)


def test_write_image_package_refuses_exactly_the_runs_its_placement_cannot_hold(tmp_path):
    path = tmp_path / "p.dbg"
    a = np.arange(3 * 4 * 4, dtype=np.uint8).reshape(3, 4, 4)
    # Runs of 3 and 2 frames: the second run's first frame would land on the first run's third.
    with pytest.raises(ValueError, match="run 1 does not fit"):
        grabsystem.write_image_package(str(path), [(a, 0, 0), (a[:2] + 100, 0, 1)])
    # A larger run after a smaller one reaches past the data area.
    with pytest.raises(ValueError, match="run 1"):
        grabsystem.write_image_package(str(path), [(a[:1], 0, 0), (np.zeros((2, 4, 4), np.uint8), 0, 1)])
    assert not path.exists()
    # Unequal runs whose spans still tile the data area are held, and read back as written:
    # 2 frames of 16 bytes, then 1 frame of 32 bytes at (1 x 1 + 0) x 32.
    wide = np.full((1, 4, 8), 77, np.uint8)
    grabsystem.write_image_package(str(path), [(a[:2], 0, 0), (wide, 1, 0)])
    package = grabsystem.read_package(str(path))
    assert np.array_equal(package.frames[0], a[:2]) and np.array_equal(package.frames[1], wide)
    # Equal runs, the rule's own case, and empty frames are held too.
    grabsystem.write_image_package(str(path), [(a, 0, 0), (a + 1, 0, 1), (np.zeros((0, 4, 4), np.uint8), 2, 0)])
    assert [f.shape[0] for f in grabsystem.read_package(str(path)).frames] == [3, 3, 0]


def test_export_packages_names_a_package_it_could_export_only_in_part(demo, out):
    cut = out.parent / "cut.dbg"
    cut.write_bytes((demo / "packages" / "general.dbg").read_bytes()[:3000])
    (out / "D" / "vormex").mkdir(parents=True)  # the project file's folder, as on a scanner
    with pytest.raises(grabsystem.FileError, match="general package") as raised:
        grabsystem.export_packages([str(cut)])
    assert raised.value.filename == str(cut)
