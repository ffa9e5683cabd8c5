// The camera devices of a build without Aravis (the Windows cross build,
// or a machine without libaravis-dev): every camera is refused with the
// same cause, so that the tool and Python say why in one line.
#include "grabsystem/platform/camera/camera_device.h"

namespace GrabSystem {
namespace platform {

namespace {
const char* const kNoSupport = "this build of GrabSystem has no camera support (it was built without Aravis)";
}

bool CameraSupport() { return false; }

Status OpenSimulatedCamera(const std::string& serial, std::unique_ptr<CameraDevice>&) {
    return Status::NotSupported("simulated camera " + serial, kNoSupport);
}

Status OpenCameraAtAddress(const std::string& address, std::unique_ptr<CameraDevice>&) {
    return Status::NotSupported("camera at " + address, kNoSupport);
}

Status OpenCameraById(const std::string& id, bool, std::unique_ptr<CameraDevice>&) {
    return Status::NotSupported("camera " + id, kNoSupport);
}

Status ListCameraDevices(bool, std::vector<CameraDescription>& cameras) {
    cameras.clear();
    return Status::NotSupported("", kNoSupport);
}

Status GigECameraSimulator::Start(const std::string& serial, std::unique_ptr<GigECameraSimulator>&) {
    return Status::NotSupported("simulated GigE Vision camera " + serial, kNoSupport);
}

}  // namespace platform
}  // namespace GrabSystem
