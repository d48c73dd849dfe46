#include "key_names.h"

#include <algorithm>
#include <cctype>
#include <map>

namespace quillo::agent {

std::optional<uint32_t> keysymForKey(const std::string& name) {
    if (name.size() == 1) {
        auto c = static_cast<unsigned char>(name[0]);
        // Printable ASCII keysyms are the characters themselves; letters as typed, lower case.
        if (c > 0x20 && c < 0x7f) {
            return static_cast<uint32_t>(std::tolower(c));
        }
    }
    static const std::map<std::string, uint32_t> named = {
        {"return", 0xff0d},
        {"enter", 0xff0d},
        {"tab", 0xff09},
        {"space", 0x20},
        {"delete", 0xff08},
        {"backspace", 0xff08},
        {"forward_delete", 0xffff},
        {"escape", 0xff1b},
        {"left", 0xff51},
        {"up", 0xff52},
        {"right", 0xff53},
        {"down", 0xff54},
        {"home", 0xff50},
        {"end", 0xff57},
        {"page_up", 0xff55},
        {"page_down", 0xff56},
    };
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (auto found = named.find(lower); found != named.end()) {
        return found->second;
    }
    if (lower.size() >= 2 && lower[0] == 'f' &&
        std::all_of(lower.begin() + 1, lower.end(),
                    [](unsigned char c) { return std::isdigit(c); })) {
        int number = std::stoi(lower.substr(1));
        if (number >= 1 && number <= 12) {
            return 0xffbe + static_cast<uint32_t>(number - 1);
        }
    }
    return std::nullopt;
}

std::optional<uint32_t> keysymForModifier(const std::string& name) {
    static const std::map<std::string, uint32_t> modifiers = {
        {"command", 0xffe3}, {"control", 0xffeb}, {"option", 0xffe9},
        {"alt", 0xffe9},     {"shift", 0xffe1},   {"super", 0xffeb},
    };
    if (auto found = modifiers.find(name); found != modifiers.end()) {
        return found->second;
    }
    return std::nullopt;
}

}  // namespace quillo::agent
