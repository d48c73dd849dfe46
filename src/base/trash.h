#pragma once

#include <filesystem>

#include "result.h"

namespace quillo {

// Moves a file or folder to the user's Trash as the freedesktop.org Trash specification lays
// out, so a file manager can list and restore it: an "info/NAME.trashinfo" record with the
// original path and deletion date, and the item itself under "files/NAME". Items on the home
// file system go to dataHome()/Trash; items on another mount go to that mount's
// ".Trash/UID" (when the administrator made one) or ".Trash-UID". Returns the item's new place.
Result<std::filesystem::path> moveToTrash(const std::filesystem::path& item);

}  // namespace quillo
