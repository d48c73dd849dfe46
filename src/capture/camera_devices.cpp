#include "camera_devices.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace quillo::capture {

namespace fs = std::filesystem;

namespace {

int query(int fd, unsigned long request, void* argument) {
    int result = 0;
    do {
        result = ::ioctl(fd, request, argument);
    } while (result < 0 && errno == EINTR);
    return result;
}

std::vector<double> rates(int fd, uint32_t format, uint32_t width, uint32_t height) {
    std::vector<double> found;
    v4l2_frmivalenum interval{};
    interval.pixel_format = format;
    interval.width = width;
    interval.height = height;
    for (interval.index = 0; query(fd, VIDIOC_ENUM_FRAMEINTERVALS, &interval) == 0;
         ++interval.index) {
        const v4l2_fract& f =
            interval.type == V4L2_FRMIVAL_TYPE_DISCRETE ? interval.discrete : interval.stepwise.min;
        if (f.numerator > 0) {
            found.push_back(static_cast<double>(f.denominator) / f.numerator);
        }
        if (interval.type != V4L2_FRMIVAL_TYPE_DISCRETE) {
            break;
        }
    }
    std::sort(found.rbegin(), found.rend());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}

// The sizes of one device, merged over its pixel formats.
std::vector<CameraMode> modes(int fd) {
    std::vector<CameraMode> modes;
    v4l2_fmtdesc format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    for (format.index = 0; query(fd, VIDIOC_ENUM_FMT, &format) == 0; ++format.index) {
        const bool mjpeg = format.pixelformat == V4L2_PIX_FMT_MJPEG;
        v4l2_frmsizeenum size{};
        size.pixel_format = format.pixelformat;
        for (size.index = 0; query(fd, VIDIOC_ENUM_FRAMESIZES, &size) == 0; ++size.index) {
            if (size.type != V4L2_FRMSIZE_TYPE_DISCRETE) {
                // A range: its largest size stands for it.
                size.discrete.width = size.stepwise.max_width;
                size.discrete.height = size.stepwise.max_height;
            }
            const int w = static_cast<int>(size.discrete.width);
            const int h = static_cast<int>(size.discrete.height);
            auto same = std::find_if(modes.begin(), modes.end(), [&](const CameraMode& m) {
                return m.width == w && m.height == h;
            });
            std::vector<double> offered = rates(fd, format.pixelformat, w, h);
            if (same == modes.end()) {
                modes.push_back({w, h, offered, mjpeg});
            } else if (mjpeg && !same->mjpeg) {
                // MJPEG usually offers the higher rates at large sizes.
                same->mjpeg = true;
                same->rates = offered;
            }
            if (size.type != V4L2_FRMSIZE_TYPE_DISCRETE) {
                break;
            }
        }
    }
    std::sort(modes.begin(), modes.end(), [](const CameraMode& a, const CameraMode& b) {
        return a.width * a.height > b.width * b.height;
    });
    return modes;
}

}  // namespace

std::vector<CameraDevice> cameraDevices() {
    if (const char* source = std::getenv("QUILLO_CAMERA_SOURCE"); source && *source) {
        std::string text(source);
        const size_t colon = text.find(':');
        if (colon == std::string::npos) {
            return {};
        }
        return {{text.substr(colon + 1), "Test camera", text.substr(0, colon), {}}};
    }
    std::vector<CameraDevice> devices;
    std::error_code error;
    for (fs::directory_iterator it("/dev", error), end; !error && it != end; it.increment(error)) {
        const std::string name = it->path().filename().string();
        if (!name.starts_with("video")) {
            continue;
        }
        const int fd = ::open(it->path().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
        if (fd < 0) {
            continue;
        }
        v4l2_capability caps{};
        if (query(fd, VIDIOC_QUERYCAP, &caps) == 0) {
            const uint32_t has =
                (caps.capabilities & V4L2_CAP_DEVICE_CAPS) ? caps.device_caps : caps.capabilities;
            if (has & V4L2_CAP_VIDEO_CAPTURE) {
                CameraDevice device;
                device.id = it->path().string();
                device.name = reinterpret_cast<const char*>(caps.card);
                device.modes = modes(fd);
                devices.push_back(std::move(device));
            }
        }
        ::close(fd);
    }
    std::sort(devices.begin(), devices.end(),
              [](const CameraDevice& a, const CameraDevice& b) { return a.id < b.id; });
    return devices;
}

CameraChoice chooseCameraMode(const CameraDevice& device) {
    CameraChoice choice;
    if (device.modes.empty()) {
        return choice;
    }
    auto full = std::find_if(device.modes.begin(), device.modes.end(), [](const CameraMode& m) {
        return m.width == 1920 && m.height == 1080;
    });
    choice.mode = full != device.modes.end() ? *full : device.modes.front();
    for (double rate : choice.mode->rates) {
        if (rate <= 30.5) {
            choice.rate = rate;
            break;
        }
    }
    if (choice.rate == 0 && !choice.mode->rates.empty()) {
        choice.rate = choice.mode->rates.back();
    }
    return choice;
}

}  // namespace quillo::capture
