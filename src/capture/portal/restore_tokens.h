#pragma once

// The portal's restore tokens, one for a shared window and one for a shared display, kept in
// the support folder (mode 0600: a token lets its holder record the screen without asking) so
// the next recording, the global shortcut and agents start without the desktop's dialog.

#include <filesystem>
#include <optional>
#include <string>

namespace quillo::capture::portal {

class RestoreTokens {
public:
    explicit RestoreTokens(std::filesystem::path file) : m_file(std::move(file)) {}

    // The token for a window or a display; empty when none is kept. A file that can't be read
    // as tokens is forgotten, and `damaged` says so once.
    std::string get(bool window);
    // Keeps `token` (empty forgets it), written whole.
    void set(bool window, const std::string& token);
    bool takeDamaged();
    // The kind (window: true) of the last choice whose token is kept.
    std::optional<bool> last();

private:
    std::filesystem::path m_file;
    bool m_damaged = false;
};

// Portal tokens are short printable words; anything else came from a damaged file.
bool plausibleToken(const std::string& token);

}  // namespace quillo::capture::portal
