"""grabsystem.dask on a two-process LocalCluster bound to 127.0.0.1: arrays against the
module's readers, and jobs against the single-process extractor and exporter."""
import os
import re
import signal
import subprocess
import sys
import threading
import time

import dask
import numpy as np
import pytest
from distributed import Client, LocalCluster
from PIL import Image

import grabsystem
from grabsystem import dask as gd

DIMS = (1, 2, 12)


@pytest.fixture(scope="module")
def client():
    # No dashboard; its HTTP routes on a free port, not the fixed 8787.
    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, host="127.0.0.1",
                      dashboard_address="127.0.0.1:0") as cluster, Client(cluster) as c:
        addresses = [c.scheduler.address] + list(c.scheduler_info()["workers"])
        assert all(a.startswith("tcp://127.0.0.1:") for a in addresses), addresses
        yield c


def write_views(folder, views, width, height, cameras=(3, 5), seed=0):
    folder.mkdir(parents=True, exist_ok=True)
    rng = np.random.default_rng(seed)
    ramp = np.add.outer(np.arange(height), np.arange(width)).astype(np.uint8)
    for v in views:
        count = len(cameras) * DIMS[0] * DIMS[1] * DIMS[2]
        noise = rng.integers(0, 4, (count, height, width))
        sin = (ramp[None] * (1 + np.arange(count)[:, None, None] % 3) + noise).astype(np.uint8)
        white = np.stack([ramp + v] * len(cameras)).astype(np.uint8)
        grabsystem.write_arm_view(str(folder / f"{v}.armraw"), v, sin, white, list(cameras), DIMS)
    return folder


@pytest.fixture(scope="module")
def archive(tmp_path_factory):
    return write_views(tmp_path_factory.mktemp("archive") / "views", [0, 1, 2, 7, 10], 40, 24)


def tree(root):
    return {p.relative_to(root).as_posix(): p.read_bytes() for p in root.rglob("*") if p.is_file()}


def reference_extraction(folder, out):
    extractor = grabsystem.ArmExtractor()
    assert extractor.extract(str(out), [(str(folder), extractor.parse_arm_raw_files(str(folder)))]) == [[]]
    return tree(out)


def reference_export(paths, root, damaged=None):
    (root / "D" / "vormex").mkdir(parents=True)  # as grabsys makes it under its drive root
    grabsystem.set_drive_root(str(root))
    try:
        grabsystem.export_packages([str(p) for p in paths])
        assert damaged is None
    except grabsystem.FileError as e:
        # The single run writes what it can read of a damaged package, and says so.
        if damaged is None or e.filename != str(damaged):
            raise
    finally:
        grabsystem.set_drive_root("")
    return tree(root)


def test_arrays_are_the_views_and_runs_the_readers_give(archive, demo, client, tmp_path):
    views = gd.read_views(archive)
    paths = sorted(archive.glob("*.armraw"), key=lambda p: int(p.stem))
    assert views.paths == [str(p) for p in paths]
    assert views.sin.shape == (5, 48, 24, 40) and views.white.shape == (5, 2, 24, 40)
    assert views.sin.chunks[0] == (1,) * 5 and views.sin.dtype == np.uint8
    sin, white, corner = dask.compute(views.sin, views.white, views.sin[1:4, 10:20, 3, ::7])
    for i, path in enumerate(paths):
        view = grabsystem.read_arm_view(str(path))
        assert np.array_equal(sin[i], view.sin) and np.array_equal(white[i], view.white)
    assert np.array_equal(corner, sin[1:4, 10:20, 3, ::7])
    info = views.info
    assert list(info["view"]) == [0, 1, 2, 7, 10] and info["cameras"][0] == [3, 5]
    assert info["sin_dims"][4] == DIMS and set(info["records"]) == {50}
    # A list keeps its order; a glob is sorted by name.
    assert gd.read_views([paths[3], paths[0]]).paths == [str(paths[3]), str(paths[0])]
    assert gd.read_views(str(archive / "1*.armraw")).paths == [str(paths[1]), str(paths[4])]

    # Only headers are read to build: a view cut after its header builds, and
    # fails when its chunk is computed, naming the file; the others compute.
    mixed = tmp_path / "mixed"
    mixed.mkdir()
    for p in paths[:2]:
        (mixed / p.name).write_bytes(p.read_bytes())
    (mixed / "4.armraw").write_bytes(paths[2].read_bytes()[:1100])
    cut = gd.read_views(mixed)
    assert np.array_equal(cut.sin[1].compute(), sin[1])
    with pytest.raises(grabsystem.FileError, match="4.armraw: arm view: the file ends"):
        cut.white[2].compute()
    (mixed / "5.armraw").write_bytes(b"\2\0\0\0")
    with pytest.raises(grabsystem.FileError, match="5.armraw: arm view: truncated header"):
        gd.read_views(mixed)
    write_views(mixed, [5], 40, 20)
    with pytest.raises(ValueError, match=r"48 Sin \+ 2 white frames of 40 x 24: .*0.armraw.*; 48 Sin \+ 2 white frames "
                                         r"of 40 x 20: .*5.armraw"):
        gd.read_views(mixed)
    with pytest.raises(ValueError, match="no files"):
        gd.read_views(str(tmp_path / "none*"))

    packages = tmp_path / "packages"
    packages.mkdir()
    run = np.arange(3 * 480 * 640, dtype=np.uint32).reshape(3, 480, 640).astype(np.uint8)
    grabsystem.write_general_package(str(packages / "b.dbg"), [(run, 4, 1, 9)])
    (packages / "a.dbg").write_bytes((demo / "packages" / "image.dbg").read_bytes())
    runs = gd.read_packages(packages)
    assert runs.frames.shape == (3, 3, 480, 640) and runs.frames.chunks[0] == (1, 1, 1)
    frames = runs.frames.compute()
    expected = grabsystem.read_package(str(packages / "a.dbg")).frames + [run]
    assert all(np.array_equal(f, e) for f, e in zip(frames, expected))
    assert list(runs.info["cam_idx"]) == [0, 1, 4] and list(runs.info["jump_idx"]) == [0, 0, 9]
    assert list(runs.info["general"]) == [False, False, True]
    grabsystem.write_image_package(str(packages / "c.dbg"), [(run[:2], 0, 0)])
    with pytest.raises(ValueError, match=r"2 frames of 640 x 480: .*c.dbg"):
        gd.read_packages(packages)
    (packages / "c.dbg").write_bytes(b"\3\0\0\0\1\0\0\0\5\0\0\0")
    with pytest.raises(grabsystem.FileError, match="c.dbg: general package: the file ends inside its 5 records"):
        gd.read_packages(packages)


def test_jobs_write_the_trees_of_the_single_process_extractor_and_exporter(archive, demo, client, tmp_path):
    expected = reference_extraction(archive, tmp_path / "ref")
    for name, how in (("cluster", {"client": client}),
                      ("address", {"client": client.scheduler.address, "progress": True}),
                      ("local", {"workers": 2})):
        outcomes = gd.extract(archive, tmp_path / name, **how)
        assert [o.status for o in outcomes] == ["written"] * 5
        assert tree(tmp_path / name) == expected
        assert sorted(f for o in outcomes for f in o.files) == sorted(str(tmp_path / name / f) for f in expected)

    image, general = demo / "packages" / "image.dbg", demo / "packages" / "general.dbg"
    runs = [np.full((2, 8, 6), k, np.uint8) for k in range(3)]
    grabsystem.write_image_package(str(tmp_path / "i2.dbg"), [(runs[0], 1, 0), (runs[1], 1, 1)], jump_idx=5)
    grabsystem.write_general_package(str(tmp_path / "g1.dbg"), [(runs[2], 2, 0, 3)], project_file=b"<first/>")
    grabsystem.write_general_package(str(tmp_path / "g2.dbg"), [(runs[1], 2, 0, 3)], project_file=b"<second/>")
    grabsystem.write_general_package(str(tmp_path / "g3.dbg"), [(runs[0], 2, 0, 3)])
    for k, paths in enumerate([[image, tmp_path / "i2.dbg", image], [general], [tmp_path / "i2.dbg"],
                               [tmp_path / "g1.dbg", tmp_path / "g2.dbg", tmp_path / "g3.dbg", general]]):
        expected = reference_export(paths, tmp_path / f"ref{k}")
        outcomes = gd.export(paths, tmp_path / f"root{k}", client=client)
        assert tree(tmp_path / f"root{k}") == expected, paths
        written = sorted(f for o in outcomes for f in o.files)
        if k < 3:
            assert all(o.ok for o in outcomes) and written == sorted(str(tmp_path / f"root{k}" / f) for f in expected)
    # Several general packages: the project file is the last one's (the demo's),
    # and the frames, which the list's export reads from the wrong bytes, are
    # reported rather than passed over.
    assert expected["D/vormex/importTmp.fpz"] == grabsystem.read_package(str(general)).project_file
    assert not any(name.endswith(".bmp") for name in expected)
    assert all("does not decompress" in o.error.cause for o in outcomes if o.path != str(tmp_path / "g3.dbg"))

    outcomes = gd.preview([archive / "7.armraw", image, archive], tmp_path / "sheets", thumb_width=16, client=client)
    assert [os.path.basename(o.files[0]) for o in outcomes] == [
        "7.png", "image.png", "views-0.png", "views-1.png", "views-2.png", "views-7.png", "views-10.png"]
    for o in outcomes[:2]:
        assert np.array_equal(np.asarray(Image.open(o.files[0])), grabsystem.contact_sheet(o.path, thumb_width=16))


def test_a_damaged_file_fails_alone_with_its_cause(archive, demo, client, tmp_path):
    folder = tmp_path / "views"
    folder.mkdir()
    for p in archive.glob("*.armraw"):
        (folder / p.name).write_bytes(p.read_bytes())
    data = (archive / "2.armraw").read_bytes()
    (folder / "2.armraw").write_bytes(data[:len(data) // 2])
    (folder / "x.armraw").write_bytes(data)
    outcomes = {os.path.basename(o.path): o for o in gd.extract(folder, tmp_path / "out", client=client)}
    assert sorted(name for name, o in outcomes.items() if o.ok) == ["0.armraw", "1.armraw", "10.armraw", "7.armraw"]
    cut, odd = outcomes["2.armraw"], outcomes["x.armraw"]
    assert cut.failed_views == [2] and cut.error.filename == str(folder / "2.armraw")
    assert "the extractor could not" in cut.error.cause or "arm view:" in cut.error.cause
    assert odd.failed_views == [] and "not a view file" in str(odd)
    ref = tmp_path / "ref"
    (folder / "2.armraw").unlink()
    (folder / "x.armraw").unlink()
    assert {k: v for k, v in tree(tmp_path / "out").items() if "/2/" not in k} == reference_extraction(folder, ref)

    image = demo / "packages" / "image.dbg"
    (tmp_path / "cut.dbg").write_bytes(image.read_bytes()[:5000])
    outcomes = gd.export([image, tmp_path / "cut.dbg", tmp_path / "missing.dbg", image], tmp_path / "root",
                         client=client)
    assert [o.ok for o in outcomes] == [True, False, False, True]
    # The exporter reads the cut package's missing frames as zeros; its
    # files are a single run's, and the user hears the package is damaged.
    assert outcomes[1].error.cause.startswith("image package:") and "the export wrote 6 files" in str(outcomes[1])
    assert outcomes[2].error.cause == "no such file"
    assert tree(tmp_path / "root") == reference_export([image, tmp_path / "cut.dbg"], tmp_path / "ref2", damaged=tmp_path / "cut.dbg") | {
        k.replace("_0/", "_3/"): v for k, v in tree(tmp_path / "root").items() if "_0/" in k}
    sheets = gd.preview([tmp_path / "cut.dbg", image], tmp_path / "sheets", client=client)
    assert [o.ok for o in sheets] == [False, True] and sheets[0].error.filename == str(tmp_path / "cut.dbg")

    # The same from the command line: a line per file, the failures on
    # stderr, and exit code 1.
    env = dict(os.environ, PYTHONPATH=os.pathsep.join(sys.path))
    batch = [sys.executable, "-m", "grabsystem.batch"]
    (folder / "3.armraw").write_bytes(data[:3000])
    run = subprocess.run(batch + ["extract", str(folder), "-o", str(tmp_path / "cli"), "--scheduler",
                                  client.scheduler.address, "-q"], env=env, capture_output=True, text=True)
    assert run.returncode == 1 and "3.armraw: failed: arm view: the file ends after" in run.stderr
    assert "extract: 4 of 5 inputs done, 200 files written" in run.stderr and run.stdout == ""
    run = subprocess.run(batch + ["export", str(image), "-o", str(tmp_path / "cli2"), "--workers", "1"], env=env,
                         capture_output=True, text=True)
    assert run.returncode == 0 and "image.dbg: written, 6 files" in run.stdout, run.stderr
    run = subprocess.run(batch + ["preview", "--help"], env=env, capture_output=True, text=True)
    assert run.returncode == 0 and "--scheduler ADDR" in run.stdout and "--per-row" in run.stdout
    run = subprocess.run(batch + ["extract", str(tmp_path / "nothing*"), "-o", "x"], env=env, capture_output=True,
                         text=True)
    assert run.returncode == 1 and "no files in" in run.stderr


def test_a_worker_killed_mid_job_leaves_the_whole_tree_and_no_temporary(client, tmp_path):
    folder = write_views(tmp_path / "big", range(12), 640, 480, seed=3)
    expected = reference_extraction(folder, tmp_path / "ref")
    out = tmp_path / "out"
    (out / "Cam3P" / "4").mkdir(parents=True)
    stale = out / "Cam3P" / "4" / "img4.bmp.tmp-4000000-7"  # left by a process killed earlier
    stale.write_bytes(b"BM half")

    outcomes = []
    job = threading.Thread(target=lambda: outcomes.extend(gd.extract(folder, out, client=client)))
    pids = client.run(os.getpid)
    job.start()
    busy = None
    deadline = time.monotonic() + 60
    while busy is None and job.is_alive() and time.monotonic() < deadline:
        running = client.run(lambda dask_worker: dask_worker.state.executing_count)
        busy = next((w for w, n in running.items() if n and any(out.rglob("*.bmp"))), None)
    assert busy is not None, "the job ended before a worker could be killed"
    os.kill(pids[busy], signal.SIGKILL)
    job.join(120)
    assert not job.is_alive() and [o.status for o in outcomes] == ["written"] * 12
    assert busy not in client.scheduler_info()["workers"]
    assert tree(out) == expected
    assert not list(out.rglob("*.tmp-*"))
    client.wait_for_workers(2, timeout=60)


def test_the_readme_example_runs(archive, tmp_path):
    readme = open(os.path.join(os.path.dirname(__file__), "..", "..", "README.md")).read()
    section = readme[readme.index("## Archives with Dask"):]
    (tmp_path / "example.py").write_text(re.search(r"```python\n(.*?)```", section, re.S).group(1))
    out = subprocess.run([sys.executable, str(tmp_path / "example.py"), str(archive), str(tmp_path / "bmp")],
                         check=True, capture_output=True, text=True).stdout
    assert out.count(": written, 50 files") == 5 and "(5, 48, 24, 40)" in out and "[3, 5]" in out


def test_without_dask_the_module_stays_and_the_submodule_names_the_packages():
    code = ("import sys; sys.modules['dask'] = None; import grabsystem; grabsystem.read_arm_header\n"
            "try:\n    import grabsystem.dask\nexcept ImportError as e:\n    print(e)")
    out = subprocess.run([sys.executable, "-c", code], check=True, capture_output=True, text=True).stdout
    assert "apt-get install python3-dask python3-distributed" in out
