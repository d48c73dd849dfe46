#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

namespace quillo::testing {

// A fresh folder under the system's temporary folder, removed with everything in it at the end
// of the test.
class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    std::filesystem::path operator/(const std::string& name) const { return m_path / name; }

    // Writes `text` to `name` inside the folder, creating parent folders.
    void write(const std::string& name, const std::string& text) const;

private:
    std::filesystem::path m_path;
};

// Sets environment variables for one test and puts back what was there before.
class ScopedEnvironment {
public:
    ScopedEnvironment() = default;
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

    // None unsets the variable.
    void set(const std::string& name, const std::optional<std::string>& value);

private:
    std::map<std::string, std::optional<std::string>> m_saved;
};

// Points HOME and the XDG folders into `root`, so tests never touch the real user's files.
void isolateHome(ScopedEnvironment& environment, const std::filesystem::path& root);

}  // namespace quillo::testing
