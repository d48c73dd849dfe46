#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/result.h"
#include "local_project.h"

namespace quillo::project {

// The library: one folder whose sub-folders are recordings. Listed by scanning, with no index;
// a folder counts as a recording exactly when it holds "recording.mp4" and a readable
// "project.json". Used from the main queue; holds no state besides its root.
class ProjectLibrary {
public:
    explicit ProjectLibrary(std::filesystem::path root) : m_root(std::move(root)) {}

    const std::filesystem::path& root() const { return m_root; }

    // Makes "Demo-{seconds}-{8 hex}" under the root (with missing parents) and saves its
    // "project.json": title from the source name ("Demo" for none or "Screen"), " · ", and the
    // localized date and time of `now`.
    Result<LocalProject> create(const CaptureSource& source,
                                Instant now = std::chrono::system_clock::now()) const;

    // The recordings, newest first (by `created`, stable). A missing root lists as empty and is
    // not created; folders that are not recordings are skipped without a word.
    Result<std::vector<LocalProject>> load() const;

    // Gives the project the trimmed `name` as its title and saves it. Returns the updated
    // project, or none when the trimmed name is empty (nothing changes). The folder keeps its
    // name.
    static Result<std::optional<LocalProject>> rename(const LocalProject& project,
                                                      std::string_view name);

    // Moves the project's whole folder to the user's Trash (restorable from a file manager).
    static Result<std::filesystem::path> moveToTrash(const LocalProject& project);

    // The title a new project gets for a source name at `now`.
    static std::string title(std::string_view sourceName, Instant now);

private:
    std::filesystem::path m_root;
};

}  // namespace quillo::project
