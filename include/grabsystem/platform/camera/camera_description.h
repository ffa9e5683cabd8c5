// CameraDescription: what a GenICam camera says about itself, as the camera
// layer and the list of cameras report it. Numbers are 0 and texts empty
// where the camera (or the list, which does not open cameras) does not say.
#pragma once

#include <cstdint>
#include <string>

namespace GrabSystem {
namespace platform {

struct CameraDescription {
    std::string id;  // Aravis device id
    std::string vendor;
    std::string model;
    std::string serial;
    std::string protocol;  // "GigEVision", "USB3Vision", "Fake" (the in-process simulated camera)
    std::string address;   // IP address of a GigE Vision camera
    uint32_t sensorWidth = 0, sensorHeight = 0;
    uint32_t x = 0, y = 0, width = 0, height = 0;  // the region it sends
    std::string pixelFormat;                       // as the camera names it ("Mono8")
    uint32_t pixelFormatCode = 0;                  // GenICam PFNC code
    double frameRate = 0;
    uint32_t packetSize = 0;  // GigE Vision stream packet size, bytes
    uint64_t payload = 0;     // bytes per frame buffer
};

}  // namespace platform
}  // namespace GrabSystem
