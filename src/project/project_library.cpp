#include "project_library.h"

#include <algorithm>
#include <system_error>

#include "base/trash.h"
#include "base/uuid.h"

namespace quillo::project {

namespace fs = std::filesystem;

namespace {

std::string_view trimmed(std::string_view text) {
    const char* space = " \t\n\r\f\v";
    size_t first = text.find_first_not_of(space);
    if (first == std::string_view::npos) {
        return {};
    }
    size_t last = text.find_last_not_of(space);
    return text.substr(first, last - first + 1);
}

}  // namespace

std::string ProjectLibrary::title(std::string_view sourceName, Instant now) {
    std::string name(sourceName);
    if (name.empty() || name == "Screen") {
        name = "Demo";
    }
    return name + " · " + localizedDateTime(now);
}

Result<LocalProject> ProjectLibrary::create(const CaptureSource& source, Instant now) const {
    auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now.time_since_epoch());
    std::string folderName =
        "Demo-" + std::to_string(seconds.count()) + "-" + makeUUID().substr(0, 8);
    fs::path directory = m_root / folderName;
    std::error_code ec;
    fs::create_directories(directory, ec);
    if (ec) {
        return AppError::fromErrno(ec.value(),
                                   "Could not create the folder “" + directory.string() + "”");
    }
    LocalProject project{directory, ProjectMetadata{}};
    project.metadata.title = title(source.name, now);
    project.metadata.created = iso8601(now);
    project.metadata.source = source;
    if (auto saved = project.save(); !saved) {
        return saved.error();
    }
    return project;
}

Result<std::vector<LocalProject>> ProjectLibrary::load() const {
    std::vector<LocalProject> projects;
    std::error_code ec;
    if (!fs::exists(m_root, ec)) {
        return projects;
    }
    fs::directory_iterator entries(m_root, ec);
    if (ec) {
        return AppError::fromErrno(ec.value(), "Could not list “" + m_root.string() + "”");
    }
    for (const fs::directory_entry& entry : entries) {
        std::error_code entryError;
        if (!entry.is_directory(entryError) ||
            !fs::exists(entry.path() / LocalProject::kRecording, entryError)) {
            continue;
        }
        if (auto project = LocalProject::open(entry.path())) {
            projects.push_back(std::move(project.value()));
        }
    }
    // Folder order first, so projects created in the same second list the same way each time.
    std::sort(projects.begin(), projects.end(), [](const LocalProject& a, const LocalProject& b) {
        return a.directory < b.directory;
    });
    std::stable_sort(projects.begin(), projects.end(),
                     [](const LocalProject& a, const LocalProject& b) {
                         return a.metadata.created > b.metadata.created;
                     });
    return projects;
}

Result<std::optional<LocalProject>> ProjectLibrary::rename(const LocalProject& project,
                                                           std::string_view name) {
    std::string_view title = trimmed(name);
    if (title.empty()) {
        return std::optional<LocalProject>();
    }
    LocalProject renamed = project;
    renamed.metadata.title = std::string(title);
    if (auto saved = renamed.save(); !saved) {
        return saved.error();
    }
    return std::optional<LocalProject>(std::move(renamed));
}

Result<fs::path> ProjectLibrary::moveToTrash(const LocalProject& project) {
    return quillo::moveToTrash(project.directory);
}

}  // namespace quillo::project
