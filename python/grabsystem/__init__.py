"""GrabSystem for Python: the scanner's capture files to and from numpy, and the grab path.

Reading gives objects whose arrays share memory with them (no copy):

    view = grabsystem.read_arm_view("3.armraw")      # ArmView: .sin, .white, .cameras, ...
    package = grabsystem.read_package("capture.dbg")  # Package: .records, .frames, ...
    image = grabsystem.read_image("frame.raw")        # Image: .pixels, .info

Writing goes through the library's own classes, so the files are byte for byte
what C++ callers write: write_image, write_float_raw, write_ffc_tables,
write_arm_view (or ArmOutputManager.add_view), write_image_package,
write_general_package. ImagePool takes frames from any buffer; ArmExtractor and
export_packages turn captures back into BMP trees; contact_sheet and
folder_sheet give the pictures of grabsys preview as arrays. Camera streams
a GenICam camera (through Aravis) into an ImagePool, counting every frame.
grabsystem.dask (with Dask installed) reads whole archives as Dask arrays and
runs extraction, export and previews as one task per file (read_arm_header,
read_package_head, extract_view, export_package, import_project_file; and
temporary_file_name, is_temporary_file_name for the library's temporary files).

A file that cannot be read or written raises FileError (an OSError) naming the
file and the cause; a camera that cannot be opened, set or streamed raises
CameraError (an OSError) naming the camera and the cause. Outcomes that are normal while grabbing return False or
None instead: a push no image can take, a serial no longer in the pool.
"""

from ._core import (
    AddResult,
    ArmExtractor,
    ArmOutputManager,
    ArmView,
    Camera,
    CameraError,
    FileError,
    Image,
    ImagePool,
    Package,
    PackageRecord,
    PoolImage,
    camera_support,
    check_simulated_pattern,
    export_package,
    export_packages,
    contact_sheet,
    counter_fields,
    extract_view,
    folder_sheet,
    import_project_file,
    is_temporary_file_name,
    list_cameras,
    read_arm_header,
    read_arm_view,
    read_ffc_tables,
    read_float_raw,
    read_image,
    read_package,
    read_package_head,
    set_drive_root,
    temporary_file_name,
    write_arm_view,
    write_ffc_tables,
    write_float_raw,
    write_general_package,
    write_image,
    write_image_package,
)

__all__ = [
    "AddResult",
    "ArmExtractor",
    "ArmOutputManager",
    "ArmView",
    "Camera",
    "CameraError",
    "FileError",
    "Image",
    "ImagePool",
    "Package",
    "PackageRecord",
    "PoolImage",
    "camera_support",
    "check_simulated_pattern",
    "export_package",
    "export_packages",
    "contact_sheet",
    "counter_fields",
    "extract_view",
    "folder_sheet",
    "import_project_file",
    "is_temporary_file_name",
    "list_cameras",
    "read_arm_header",
    "read_arm_view",
    "read_ffc_tables",
    "read_float_raw",
    "read_image",
    "read_package",
    "read_package_head",
    "set_drive_root",
    "temporary_file_name",
    "write_arm_view",
    "write_ffc_tables",
    "write_float_raw",
    "write_general_package",
    "write_image",
    "write_image_package",
]
