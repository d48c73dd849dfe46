#include "temp_folder.h"

#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>

namespace quillo::testing {

namespace fs = std::filesystem;

TempFolder::TempFolder() {
    std::string pattern = (fs::temp_directory_path() / "quillo-test-XXXXXX").string();
    char* made = ::mkdtemp(pattern.data());
    if (made == nullptr) {
        ADD_FAILURE() << "mkdtemp failed";
    }
    m_path = pattern;
}

TempFolder::~TempFolder() {
    std::error_code ec;
    // Folders made read-only by a test are made writable again so they can be removed.
    fs::permissions(m_path, fs::perms::owner_all, fs::perm_options::add, ec);
    for (auto it = fs::recursive_directory_iterator(m_path, ec);
         it != fs::recursive_directory_iterator(); it.increment(ec)) {
        fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ec);
    }
    fs::remove_all(m_path, ec);
}

void TempFolder::write(const std::string& name, const std::string& text) const {
    fs::path file = m_path / name;
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << text;
}

ScopedEnvironment::~ScopedEnvironment() {
    for (const auto& [name, value] : m_saved) {
        if (value) {
            ::setenv(name.c_str(), value->c_str(), 1);
        } else {
            ::unsetenv(name.c_str());
        }
    }
}

void ScopedEnvironment::set(const std::string& name, const std::optional<std::string>& value) {
    if (!m_saved.count(name)) {
        const char* old = std::getenv(name.c_str());
        m_saved[name] = old ? std::optional<std::string>(old) : std::nullopt;
    }
    if (value) {
        ::setenv(name.c_str(), value->c_str(), 1);
    } else {
        ::unsetenv(name.c_str());
    }
}

void isolateHome(ScopedEnvironment& environment, const fs::path& root) {
    environment.set("HOME", root.string());
    environment.set("XDG_DATA_HOME", (root / ".local/share").string());
    environment.set("XDG_CONFIG_HOME", (root / ".config").string());
    environment.set("QUILLO_LIBRARY", std::nullopt);
    environment.set("QUILLO_SUPPORT", std::nullopt);
    environment.set("QUILLO_SELFTEST", std::nullopt);
}

}  // namespace quillo::testing
