#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quillo::capture {

// One picture size a camera offers, with its frame rates and whether it comes as MJPEG.
struct CameraMode {
    int width = 0;
    int height = 0;
    std::vector<double> rates;  // frames per second, highest first
    bool mjpeg = false;
};

// A video capture device as libavdevice opens it: `format` is the input format ("video4linux2",
// or "lavfi" for a test source), `id` the URL it opens (a device path such as "/dev/video0").
struct CameraDevice {
    std::string id;
    std::string name;
    std::string format = "video4linux2";
    std::vector<CameraMode> modes;
};

// The cameras attached now: every /dev/video* node that captures video, with the sizes and
// rates it offers. The environment variable QUILLO_CAMERA_SOURCE ("FORMAT:URL", for example
// "lavfi:testsrc2=size=1280x720:rate=30,realtime") replaces them with one stand-in device.
std::vector<CameraDevice> cameraDevices();

// How a device is opened: 1920×1080 when offered, else its largest size; the highest rate up to
// 30 frames per second at that size; MJPEG when offered at that size (raw otherwise).
struct CameraChoice {
    std::optional<CameraMode> mode;  // none: the device's own default
    double rate = 0;                 // 0: the device's own default
};
CameraChoice chooseCameraMode(const CameraDevice& device);

}  // namespace quillo::capture
