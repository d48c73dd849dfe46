#include "local_project.h"

#include "base/files.h"
#include "edits_json.h"

namespace quillo::project {

namespace fs = std::filesystem;

Result<LocalProject> LocalProject::open(const fs::path& directory) {
    std::error_code ec;
    if (!fs::exists(directory / ProjectMetadata::kFileName, ec)) {
        return AppError("“" + directory.string() + "” is not a Quillo recording: it has no “" +
                        ProjectMetadata::kFileName + "”.");
    }
    auto text = readFile(directory / ProjectMetadata::kFileName);
    if (!text) {
        return text.error();
    }
    auto metadata = decodeMetadata(*text);
    if (!metadata) {
        return metadata.error();
    }
    return LocalProject{directory, std::move(metadata.value())};
}

Result<void> LocalProject::save() const {
    return writeFileAtomically(directory / ProjectMetadata::kFileName, encodeMetadata(metadata));
}

Result<std::optional<Edits>> LocalProject::loadEdits(double duration) const {
    std::error_code ec;
    fs::path path = directory / kEdits;
    if (!fs::exists(path, ec)) {
        return std::optional<Edits>();
    }
    auto text = readFile(path);
    if (!text) {
        return text.error();
    }
    auto edits = decodeEdits(*text);
    if (!edits) {
        return edits.error();
    }
    if (auto valid = edits->validate(duration); !valid) {
        return valid.error();
    }
    return std::optional<Edits>(std::move(edits.value()));
}

Result<void> LocalProject::saveEdits(const Edits& edits) const {
    return writeFileAtomically(directory / kEdits, encodeEdits(edits));
}

}  // namespace quillo::project
