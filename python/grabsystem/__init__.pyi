"""Type stubs of the grabsystem module."""

import enum
from typing import Any, Dict, List, Optional, Sequence, Tuple, Union

import numpy as np
import numpy.typing as npt

_PathLike = str
Info = Dict[str, Any]

class FileError(OSError):
    filename: str
    cause: str

class CameraError(OSError):
    camera: str
    cause: str
    code: str

def set_drive_root(root: str) -> None: ...

# ---- images

class Image:
    @property
    def pixels(self) -> np.ndarray: ...
    @property
    def info(self) -> Info: ...
    @property
    def width(self) -> int: ...
    @property
    def height(self) -> int: ...
    @property
    def channels(self) -> int: ...

def read_image(path: _PathLike) -> Image: ...
def read_float_raw(path: _PathLike, dtype: Optional[npt.DTypeLike] = None) -> Image: ...
def read_ffc_tables(path: _PathLike) -> List[Image]: ...
def write_image(path: _PathLike, pixels: npt.ArrayLike, format: str = "raw", info: Optional[Info] = None) -> None: ...
def write_float_raw(
    path: _PathLike, pixels: npt.ArrayLike, resolution: Tuple[float, float] = (10.0, 10.0), info: Optional[Info] = None
) -> None: ...
def write_ffc_tables(path: _PathLike, tables: Sequence[npt.ArrayLike], infos: Optional[Sequence[Info]] = None) -> None: ...

# ---- arm views and packages

class ArmView:
    @property
    def version(self) -> int: ...
    @property
    def width(self) -> int: ...
    @property
    def height(self) -> int: ...
    @property
    def sin_frame_count(self) -> int: ...
    @property
    def white_frame_count(self) -> int: ...
    @property
    def cam_count(self) -> int: ...
    @property
    def sin_dims(self) -> Tuple[int, int, int]: ...
    @property
    def cameras(self) -> List[int]: ...
    @property
    def record_lengths(self) -> npt.NDArray[np.uint32]: ...
    @property
    def sin(self) -> npt.NDArray[np.uint8]: ...
    @property
    def white(self) -> npt.NDArray[np.uint8]: ...

class PackageRecord:
    jump_idx: int
    width: int
    height: int
    frame_count: int
    cam_idx: int
    group_idx: int

class Package:
    general: bool
    version: int
    jump_idx: int
    @property
    def records(self) -> List[PackageRecord]: ...
    @property
    def frames(self) -> List[npt.NDArray[np.uint8]]: ...
    @property
    def project_file(self) -> Optional[bytes]: ...

def read_arm_view(path: _PathLike) -> ArmView: ...
def read_package(path: _PathLike) -> Package: ...
def write_image_package(
    path: _PathLike, runs: Sequence[Tuple[npt.ArrayLike, int, int]], jump_idx: int = 0
) -> None: ...
def write_general_package(
    path: _PathLike, runs: Sequence[Tuple[npt.ArrayLike, int, int, int]], project_file: Optional[bytes] = None
) -> None: ...

# ---- the grab path

class PoolImage:
    serial: int
    @property
    def frame_attr(self) -> int: ...
    @property
    def pixels(self) -> np.ndarray: ...
    def release(self) -> None: ...
    def __enter__(self) -> "PoolImage": ...
    def __exit__(self, *args: Any) -> None: ...

class ImagePool:
    def __init__(
        self, count: int, width: int, height: int, bits: int = 8, ring: bool = False, pool_id: int = 0, cam_idx: int = 0
    ) -> None: ...
    def push(
        self,
        frame: Any,
        frame_attr: int = 0,
        *,
        row_bytes: Optional[int] = None,
        rows: Optional[int] = None,
        row_gap: Optional[int] = None,
    ) -> bool: ...
    def get(self, serial: int) -> Optional[PoolImage]: ...
    next_serial: int
    @property
    def counters(self) -> Dict[str, int]: ...
    def reset_counters(self) -> None: ...
    @property
    def live_fps(self) -> float: ...

class AddResult(enum.IntEnum):
    OK = 0
    NO_MEMORY = 1
    COMPRESS_FAILED = 3

class ArmOutputManager:
    def __init__(self, compress_threads: int = 1, max_blocks: int = 3) -> None: ...
    compress_threads: int
    max_blocks: int
    def add_view(
        self,
        path: _PathLike,
        view_idx: int,
        sin: npt.ArrayLike,
        white: npt.ArrayLike,
        cameras: Sequence[int],
        sin_dims: Tuple[int, int, int],
    ) -> AddResult: ...
    @property
    def counters(self) -> Dict[str, int]: ...
    def reset_counters(self) -> None: ...
    @property
    def block_count(self) -> int: ...

def write_arm_view(
    path: _PathLike,
    view_idx: int,
    sin: npt.ArrayLike,
    white: npt.ArrayLike,
    cameras: Sequence[int],
    sin_dims: Tuple[int, int, int],
    compress_threads: int = 1,
) -> None: ...

class ArmExtractor:
    def __init__(self, threads: int = 1) -> None: ...
    threads: int
    def extract(
        self, output_dir: _PathLike, sources: Sequence[Tuple[_PathLike, Sequence[int]]], mode: int = 1
    ) -> List[List[int]]: ...
    def parse_arm_raw_files(self, directory: _PathLike) -> List[int]: ...
    @property
    def counters(self) -> Dict[str, Tuple[int, int, int]]: ...

def export_packages(paths: Sequence[_PathLike], threads: int = 1) -> None: ...

# ---- contact sheets

def contact_sheet(
    path: _PathLike, thumb_width: int = 96, per_row: int = 13, image_width: int = 480, labels: bool = True
) -> npt.NDArray[np.uint8]: ...
def folder_sheet(
    directory: _PathLike, thumb_width: int = 96, per_row: int = 13, labels: bool = True
) -> npt.NDArray[np.uint8]: ...

# ---- cameras

class Camera:
    def __init__(
        self,
        *,
        simulated: Optional[str] = None,
        address: Optional[str] = None,
        device_id: Optional[str] = None,
        discover: bool = False,
    ) -> None: ...
    def configure(
        self,
        *,
        width: int = 0,
        height: int = 0,
        x: int = 0,
        y: int = 0,
        pixel_format: str = "Mono8",
        frame_rate: float = 0.0,
        packet_size: int = 0,
        socket_buffer: int = 4194304,
    ) -> None: ...
    def start(
        self, pool: ImagePool, *, frame_attr: str = "frame_id", first_counter: int = 0, buffers: int = 8, timeout_ms: int = 1000
    ) -> None: ...
    def stop(self) -> None: ...
    def reset_counters(self) -> None: ...
    @property
    def name(self) -> str: ...
    @property
    def streaming(self) -> bool: ...
    @property
    def description(self) -> Dict[str, Any]: ...
    @property
    def counters(self) -> Dict[str, int]: ...
    def __enter__(self) -> "Camera": ...
    def __exit__(self, *args: Any) -> None: ...

def list_cameras(discover: bool = False) -> List[Dict[str, Any]]: ...
def camera_support() -> bool: ...
def check_simulated_pattern(frame: npt.NDArray[Any], frame_id: int) -> int: ...
