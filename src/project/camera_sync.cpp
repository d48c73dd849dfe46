#include "camera_sync.h"

#include "base/files.h"
#include "base/json.h"
#include "local_project.h"

namespace quillo::project {

namespace fs = std::filesystem;

namespace {

constexpr const char* kUnreadable = "The camera timing could not be read";

CameraSync readSync(JsonReader& r) {
    CameraSync sync;
    sync.cameraStart = r.real("cameraStart");
    sync.screenStart = r.real("screenStart");
    return sync;
}

}  // namespace

Result<CameraSync> CameraSync::load(const fs::path& folder) {
    const fs::path file = folder / LocalProject::kCameraTiming;
    std::error_code error;
    if (!fs::exists(file, error)) {
        return CameraSync{};
    }
    auto text = readFile(file);
    if (!text) {
        return AppError(std::string(kUnreadable) + ".", text.error().message);
    }
    return JsonReader::decodeText<CameraSync>(*text, readSync, kUnreadable);
}

Result<void> CameraSync::save(const fs::path& folder) const {
    Json json = {{"cameraStart", cameraStart}, {"screenStart", screenStart}};
    return writeFileAtomically(folder / LocalProject::kCameraTiming, toPrettyJson(json) + "\n");
}

}  // namespace quillo::project
