"""Capture archives with Dask: views and packages as lazy arrays, and batch
jobs (extraction, package export, contact sheets) spread over processes or
a cluster, one task per file.

    from grabsystem import dask as gd
    views = gd.read_views("archive/")            # .sin (view, frame, h, w), .white, .info
    means = views.sin.mean(axis=(2, 3)).compute()
    for outcome in gd.extract("archive/", "bmp/", client="tcp://10.0.0.5:8786"):
        print(outcome)                            # written, or failed with its FileError

Building an array reads only each file's head; a chunk is one view (or one
run of a package), decoded by the same readers as read_arm_view and
read_package. Jobs run on Dask's own local process scheduler unless given a
distributed.Client or a scheduler address. Every worker must see the paths
(a shared file system) and have grabsystem installed; so must the machine
that starts a job, which lists the folders and globs.

A job returns one Outcome per input file, in input order: written, with the
files it wrote, or failed with the library's FileError and, for a view, its
index in failed_views. Nothing is only logged. A worker that dies mid-task
is replaced by Dask and its tasks run again; the files are those of a single
run, and the job ends by removing the temporary files a killed process
leaves beside unfinished files.
"""
from __future__ import annotations

import glob
import itertools
import os
import threading
import uuid
import warnings
from dataclasses import dataclass, field
from typing import Any, Callable, Dict, Iterable, List, Optional, Sequence, Tuple, Union

try:
    import dask
    import dask.array as da
    from dask.highlevelgraph import HighLevelGraph
except ImportError as error:  # pragma: no cover - depends on the machine
    raise ImportError("grabsystem.dask needs Dask; on Debian: apt-get install python3-dask python3-distributed "
                      f"({error})") from error

import numpy as np

import grabsystem

__all__ = ["Outcome", "Packages", "Views", "export", "extract", "preview", "read_packages", "read_views"]

Paths = Union[str, os.PathLike, Iterable[Union[str, os.PathLike]]]

# ---------------------------------------------------------------- inputs


def _view_order(path: str) -> Tuple[int, int, str]:
    stem = os.path.basename(path)[:-len(".armraw")]
    return (0, int(stem), path) if _is_number(stem) else (1, 0, path)


def _is_number(text: str) -> bool:
    return text.isascii() and text.isdigit()


def _view_files(folder: str) -> List[str]:
    return sorted(glob.glob(os.path.join(glob.escape(folder), "*.armraw")), key=_view_order)


def _all_files(folder: str) -> List[str]:
    return sorted(e.path for e in os.scandir(folder) if e.is_file())


def _expand(paths: Paths, folder_files: Callable[[str], List[str]]) -> List[str]:
    """Files, folders (through `folder_files`) and globs, in order, as absolute paths."""
    entries = [paths] if isinstance(paths, (str, os.PathLike)) else list(paths)
    files: List[str] = []
    for entry in map(os.fspath, entries):
        matches = sorted(glob.glob(entry)) if glob.has_magic(entry) else [entry]
        for match in matches:
            files += folder_files(match) if os.path.isdir(match) else [match]
    if not files:
        raise ValueError(f"no files in {', '.join(map(os.fspath, entries)) or 'an empty list'}")
    return [os.path.abspath(f) for f in files]


def _table(rows: List[Dict[str, Any]]):
    try:
        import pandas
    except ImportError:
        return rows
    return pandas.DataFrame(rows)


def _refuse_mixed_sizes(what: str, files: Sequence[str], sizes: Sequence[tuple], describe: Callable[[tuple], str]):
    groups: Dict[tuple, List[str]] = {}
    for f, size in zip(files, sizes):
        groups.setdefault(size, []).append(f)
    if len(groups) < 2:
        return
    parts = []
    for size, names in groups.items():
        shown = ", ".join(names[:5]) + (f" and {len(names) - 5} more" if len(names) > 5 else "")
        parts.append(f"{describe(size)}: {shown}")
    raise ValueError(f"{what} of different sizes cannot share one array; " + "; ".join(parts))


# ---------------------------------------------------------------- arrays


def _read_view(path: str, size: tuple):
    view = grabsystem.read_arm_view(path)
    if (view.sin_frame_count, view.white_frame_count, view.height, view.width) != size:
        raise grabsystem.FileError(path, "arm view: the header changed since the array was made")
    return view.sin, view.white


def _read_package(path: str, runs: List[tuple]):
    package = grabsystem.read_package(path)
    frames = package.frames
    if [f.shape for f in frames] != runs:
        raise grabsystem.FileError(path, "package: the records changed since the array was made")
    return frames


def _part(parts, index: int):
    return parts[index][np.newaxis]


def _stacked(read: str, read_layer: dict, name: str, parts: List[Tuple[int, int]], shape: tuple):
    """A (len(parts), *shape) uint8 array with one chunk per part: (read task, index) of `read_layer`."""
    layer = {(name, k, 0, 0, 0): (_part, (read, i), index) for k, (i, index) in enumerate(parts)}
    graph = HighLevelGraph({read: read_layer, name: layer}, {read: set(), name: {read}})
    chunks = ((1,) * len(parts),) + tuple((n,) for n in shape)
    return da.Array(graph, name, chunks, dtype=np.uint8)


def _token(files: List[str], *more) -> str:
    # A file rewritten since makes new keys, so nothing cached is reused.
    return dask.base.tokenize(files, [os.stat(f).st_mtime_ns for f in files], *more)


@dataclass
class Views:
    """Views of one size as lazy arrays: sin is (view, frame, height, width) in file order
    (camera outermost, then A, B, C), white (view, camera, height, width); one chunk per
    view. info is a table (a pandas DataFrame when pandas is there, else a list of
    dicts) of what each header says."""
    sin: da.Array
    white: da.Array
    info: Any
    paths: List[str]


@dataclass
class Packages:
    """Runs of one size from debug packages: frames is (run, frame, height, width), the
    runs of each package in order, one chunk per run; info has a row per run."""
    frames: da.Array
    info: Any
    paths: List[str]


def read_views(paths: Paths) -> Views:
    """The .armraw views of a list of files, a folder (its views by number) or a glob.

    Reads only the 1024-byte header of each file. Raises FileError for a header that
    cannot be read, ValueError naming the views when they differ in frame counts or
    size. Computing a chunk reads the view as read_arm_view does, and raises its
    FileError for a damaged one.
    """
    files = _expand(paths, _view_files)
    heads = [grabsystem.read_arm_header(f) for f in files]
    sizes = [(h["sin_frame_count"], h["white_frame_count"], h["height"], h["width"]) for h in heads]
    _refuse_mixed_sizes("views", files, sizes, lambda s: f"{s[0]} Sin + {s[1]} white frames of {s[3]} x {s[2]}")
    token = _token(files)
    read = f"grabsystem-read-view-{token}"
    layer = {(read, i): (_read_view, f, sizes[i]) for i, f in enumerate(files)}
    sin_count, white_count, height, width = sizes[0]
    views = range(len(files))
    sin = _stacked(read, layer, f"grabsystem-sin-{token}", [(i, 0) for i in views], (sin_count, height, width))
    white = _stacked(read, layer, f"grabsystem-white-{token}", [(i, 1) for i in views], (white_count, height, width))
    rows = []
    for f, h in zip(files, heads):
        stem = os.path.basename(f)[:-len(".armraw")] if f.endswith(".armraw") else ""
        rows.append({"path": f, "view": int(stem) if _is_number(stem) else None, "version": h["version"],
                     "cameras": h["cameras"], "cam_count": h["cam_count"], "sin_dims": h["sin_dims"],
                     "sin_frames": h["sin_frame_count"], "white_frames": h["white_frame_count"],
                     "width": h["width"], "height": h["height"],
                     "records": h["sin_frame_count"] + h["white_frame_count"], "file_bytes": h["file_bytes"]})
    return Views(sin, white, _table(rows), files)


def read_packages(paths: Paths) -> Packages:
    """The runs of debug packages (either form) of a list, a folder (its files by name)
    or a glob, as read_views gives views: only heads and records are read to build the
    array, runs of another frame count or size are refused with a ValueError naming
    their packages, and a chunk is read_package's frames of one run."""
    files = _expand(paths, _all_files)
    heads = [grabsystem.read_package_head(f) for f in files]
    runs = [[(r.frame_count, r.height, r.width) for r in h["records"]] for h in heads]
    _refuse_mixed_sizes("package runs", [f for f, rs in zip(files, runs) for _ in rs], [s for rs in runs for s in rs],
                        lambda s: f"{s[0]} frames of {s[2]} x {s[1]}")
    token = _token(files)
    read = f"grabsystem-read-package-{token}"
    layer = {(read, i): (_read_package, f, runs[i]) for i, f in enumerate(files)}
    parts = [(i, r) for i, rs in enumerate(runs) for r in range(len(rs))]
    frames = _stacked(read, layer, f"grabsystem-runs-{token}", parts, runs[0][0])
    rows = []
    for f, h in zip(files, heads):
        for r, record in enumerate(h["records"]):
            rows.append({"path": f, "run": r, "general": h["general"], "version": h["version"],
                         "project_file": h["project_file"], "cam_idx": record.cam_idx, "group_idx": record.group_idx,
                         "jump_idx": record.jump_idx, "width": record.width, "height": record.height,
                         "frame_count": record.frame_count, "file_bytes": h["file_bytes"]})
    return Packages(frames, _table(rows), files)


# ---------------------------------------------------------------- jobs


@dataclass
class Outcome:
    """What a job did with one input file."""
    path: str
    status: str = "written"  # or "failed"
    files: List[str] = field(default_factory=list)  # what it wrote whole
    error: Optional[Exception] = None  # a grabsystem.FileError: .filename and .cause
    failed_views: List[int] = field(default_factory=list)

    @property
    def ok(self) -> bool:
        return self.status == "written"

    def __str__(self) -> str:
        if self.ok:
            return f"{self.path}: written, {len(self.files)} file{'' if len(self.files) == 1 else 's'}"
        error = self.error
        said = error.cause if getattr(error, "filename", None) == self.path else error
        return f"{self.path}: failed: {said}"


def _failed(path: str, error: BaseException, view: Optional[int] = None) -> Outcome:
    if not isinstance(error, grabsystem.FileError):
        error = grabsystem.FileError(path, f"{type(error).__name__}: {error}")
    return Outcome(path, "failed", error=error, failed_views=[] if view is None else [view])


def _view_number(path: str) -> Optional[int]:
    stem = os.path.basename(path)[:-len(".armraw")] if path.endswith(".armraw") else ""
    return int(stem) if _is_number(stem) else None


def _extract_one(path: str, out: str, mode: int, check: bool, _after: Optional[Outcome] = None) -> Outcome:
    try:
        return Outcome(path, files=grabsystem.extract_view(path, out, mode, check))
    except Exception as error:  # every failure becomes the file's outcome
        return _failed(path, error, _view_number(path))


# The drive root is the process's; export tasks of one worker take turns.
_drive_root = threading.Lock()


def _export_one(path: str, root: str, position: Optional[int], first: str, check: bool) -> Outcome:
    try:
        with _drive_root:
            grabsystem.set_drive_root(root)
            try:
                return Outcome(path, files=grabsystem.export_package(path, position, first, check))
            finally:
                grabsystem.set_drive_root("")
    except Exception as error:
        return _failed(path, error)


def _preview_one(path: str, target: str, options: dict) -> Outcome:
    try:
        sheet = grabsystem.contact_sheet(path, **options)
        from PIL import Image  # python3-pil: only sheets need it
        os.makedirs(os.path.dirname(target), exist_ok=True)
        # Written whole or not at all, under a temporary name of the library's.
        temp = grabsystem.temporary_file_name(target)
        try:
            Image.fromarray(sheet).save(temp, format="PNG")
            os.replace(temp, target)
        except BaseException:
            if os.path.exists(temp):
                os.remove(temp)
            raise
        return Outcome(path, files=[target])
    except Exception as error:
        return _failed(path, error)


# What a writer killed between creating and renaming a file leaves behind:
# the library's own temporary files.
def _sweep(folder: str) -> None:
    for root, _, names in os.walk(folder):
        for name in names:
            if grabsystem.is_temporary_file_name(name):
                try:
                    os.remove(os.path.join(root, name))
                except FileNotFoundError:
                    pass


def _finish(outcomes: List[Outcome], out: str) -> List[Outcome]:
    _sweep(out)
    return outcomes


def _finish_export(outcomes: List[Outcome], root: str) -> List[Outcome]:
    # Every general package with a project file writes it to one place as it
    # loads, even one whose frames then fail; a single run leaves the last
    # one's, whatever order the tasks ended in here.
    try:
        general = grabsystem.read_package_head(outcomes[0].path)["general"]
    except grabsystem.FileError:
        general = True  # the exporter's choice for a first file it cannot read
    flagged = []
    for i, outcome in enumerate(outcomes):
        try:
            if general and grabsystem.read_package_head(outcome.path)["project_file"]:
                flagged.append(i)
        except grabsystem.FileError:
            pass  # no head, no load: its own task said so
    for i in reversed(flagged if len(flagged) > 1 else []):
        try:
            with _drive_root:
                grabsystem.set_drive_root(root)
                try:
                    grabsystem.import_project_file(outcomes[i].path)
                finally:
                    grabsystem.set_drive_root("")
            break
        except Exception as error:
            # One that loaded in its task and fails now did not write it; one
            # that never loaded wrote nothing, and the one before it counts.
            if outcomes[i].ok:
                outcomes[i] = _failed(outcomes[i].path, error)
                break
    return _finish(outcomes, root)


def _run(tasks: list, paths: List[str], finish: Callable, finish_args: tuple, client, progress: bool,
         workers: Optional[int]) -> List[Outcome]:
    """Computes one task per file, then `finish(outcomes, *finish_args)` once all are done."""
    if client is None:
        return _run_local(tasks, finish, finish_args, progress, workers)
    import distributed

    own = isinstance(client, str)
    if own:
        client = distributed.Client(client, set_as_default=False)
    try:
        futures = client.compute(tasks)
        if progress:
            distributed.progress(futures, scheduler=client.scheduler.address)
        outcomes = []
        for path, future in zip(paths, futures):
            # A task that kept killing its workers ends in error: its file failed.
            try:
                outcomes.append(future.result())
            except Exception as error:
                outcomes.append(_failed(path, error))
        return client.submit(finish, outcomes, *finish_args, pure=False).result()
    finally:
        if own:
            client.close()


def _run_local(tasks, finish, finish_args, progress, workers):
    import multiprocessing
    from concurrent.futures import ProcessPoolExecutor
    from contextlib import nullcontext

    from dask.diagnostics import ProgressBar

    with ProcessPoolExecutor(workers or os.cpu_count(), mp_context=multiprocessing.get_context("spawn")) as pool:
        with ProgressBar() if progress else nullcontext(), warnings.catch_warnings():
            # Chosen, not fallen back on: a distributed client of the caller's is not asked.
            warnings.filterwarnings("ignore", "Running on a single-machine scheduler")
            outcomes = list(dask.compute(*tasks, scheduler="processes", pool=pool))
        return pool.submit(finish, outcomes, *finish_args).result()


def extract(paths: Paths, out: Union[str, os.PathLike], *, mode: int = 1, check: bool = True, client=None,
            progress: bool = False, workers: Optional[int] = None) -> List[Outcome]:
    """Extracts .armraw views (files, folders or globs) into the BMP tree under `out`,
    one task per view, byte for byte the tree ArmExtractor.extract writes; `mode` as
    there (1 all frames, 2 white only, 3 Sin only).

    Runs on `workers` local processes (all cores) unless `client` is a
    distributed.Client or a scheduler address; `progress` shows Dask's bar. Views with
    the same number (from several folders) go into the same folders and run in the
    order given, so the last one's files stay, as in a single run. Returns an Outcome
    per view; a failed view has its number in failed_views. With `check`, each view is
    also read as read_arm_view reads it, so that damage the lenient extractor writes
    through (a last frame that does not decompress) fails the view too; its files
    stay, as in a single run.
    """
    files = _expand(paths, _view_files)
    out = os.path.abspath(os.fspath(out))
    token = uuid.uuid4().hex
    tasks, last = [], {}
    for i, path in enumerate(files):
        view = _view_number(path)
        task = dask.delayed(_extract_one)(path, out, mode, check, last.get(view), dask_key_name=("extract-" + token, i))
        if view is not None:
            last[view] = task
        tasks.append(task)
    return _run(tasks, files, _finish, (out,), client, progress, workers)


def export(paths: Paths, out: Union[str, os.PathLike], *, check: bool = True, client=None, progress: bool = False,
           workers: Optional[int] = None) -> List[Outcome]:
    """Exports debug packages (files, folders in name order, or globs) with `out` as the
    drive root: the tree under out/D/ImgTest/CamImgInput (and a general package's
    project file in out/D/vormex), byte for byte what export_packages writes for the
    same list: one package into Cam<c> folders, several into Cam<c>_<position>, the
    form picked by the first file. One task per package; unlike a single run, a
    package that fails does not stop the ones after it. Returns an Outcome per package;
    `check` as for extract(), with read_package.
    """
    files = _expand(paths, _all_files)
    root = os.path.abspath(os.fspath(out))
    os.makedirs(root, exist_ok=True)
    token = uuid.uuid4().hex
    alone = len(files) == 1
    tasks = [dask.delayed(_export_one)(path, root, None if alone else i, files[0], check,
                                       dask_key_name=("export-" + token, i)) for i, path in enumerate(files)]
    return _run(tasks, files, _finish_export, (root,), client, progress, workers)


def _sheet_sources(paths: Paths) -> List[Tuple[str, str]]:
    """(file, name stem) of every sheet: a file's own stem, <folder>-<view> for a folder's views."""
    entries = [paths] if isinstance(paths, (str, os.PathLike)) else list(paths)
    sources = []
    for entry in map(os.fspath, entries):
        for match in (sorted(glob.glob(entry)) if glob.has_magic(entry) else [entry]):
            if os.path.isdir(match):
                folder = os.path.basename(os.path.normpath(match))
                sources += [(v, f"{folder}-{os.path.basename(v)[:-len('.armraw')]}") for v in _view_files(match)]
            else:
                sources.append((match, os.path.splitext(os.path.basename(match))[0]))
    if not sources:
        raise ValueError(f"no files in {', '.join(map(os.fspath, entries)) or 'an empty list'}")
    return [(os.path.abspath(f), stem) for f, stem in sources]


def preview(paths: Paths, out: Union[str, os.PathLike], *, thumb_width: int = 96, per_row: int = 13,
            image_width: int = 480, labels: bool = True, client=None, progress: bool = False,
            workers: Optional[int] = None) -> List[Outcome]:
    """Contact sheets, one task per file, as `grabsys preview FILE... -o OUT/` writes them:
    out/<stem>.png for a file, out/<folder>-<view>.png for each view of a folder, -2, -3
    ... for names that repeat; the pictures of contact_sheet, as PNG (Pillow, on the
    workers). Returns an Outcome per sheet."""
    sources = _sheet_sources(paths)
    out = os.path.abspath(os.fspath(out))
    used, targets = set(), []
    for _, stem in sources:
        name = os.path.join(out, stem + ".png")
        for n in itertools.count(2):
            if name not in used:
                break
            name = os.path.join(out, f"{stem}-{n}.png")
        used.add(name)
        targets.append(name)
    options = {"thumb_width": thumb_width, "per_row": per_row, "image_width": image_width, "labels": labels}
    files = [f for f, _ in sources]
    token = uuid.uuid4().hex
    tasks = [dask.delayed(_preview_one)(f, t, options, dask_key_name=("preview-" + token, i))
             for i, (f, t) in enumerate(zip(files, targets))]
    return _run(tasks, files, _finish, (out,), client, progress, workers)
