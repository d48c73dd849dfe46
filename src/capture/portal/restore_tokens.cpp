#include "restore_tokens.h"

#include <system_error>

#include "base/files.h"
#include "base/json.h"
#include "base/log.h"

namespace quillo::capture::portal {

namespace {

const char* keyFor(bool window) { return window ? "window" : "display"; }

}  // namespace

bool plausibleToken(const std::string& token) {
    if (token.empty() || token.size() > 256) {
        return false;
    }
    for (char c : token) {
        if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_' || c == '.')) {
            return false;
        }
    }
    return true;
}

std::string RestoreTokens::get(bool window) {
    std::error_code error;
    if (!std::filesystem::exists(m_file, error)) {
        return "";
    }
    auto text = readFile(m_file);
    auto json = text ? parseJson(*text) : Result<Json>(text.error());
    std::string token;
    bool readable = json && json->is_object();
    if (readable && json->contains(keyFor(window))) {
        const Json& value = (*json)[keyFor(window)];
        readable = value.is_string() && plausibleToken(value.get<std::string>());
        token = readable ? value.get<std::string>() : "";
    }
    if (!readable) {
        logError("app.quillo.capture",
                 "forgetting unreadable screen-sharing tokens in " + m_file.string());
        std::filesystem::remove(m_file, error);
        m_damaged = true;
        return "";
    }
    return token;
}

void RestoreTokens::set(bool window, const std::string& token) {
    Json json = Json::object();
    if (auto text = readFile(m_file)) {
        if (auto parsed = parseJson(*text); parsed && parsed->is_object()) {
            json = *parsed;
        }
    }
    if (token.empty()) {
        json.erase(keyFor(window));
    } else {
        json[keyFor(window)] = token;
        json["last"] = keyFor(window);
    }
    std::error_code error;
    std::filesystem::create_directories(m_file.parent_path(), error);
    if (auto written = writeFileAtomically(m_file, toPrettyJson(json), 0600); !written) {
        logError("app.quillo.capture",
                 "couldn't keep the screen-sharing token: " + written.error().message);
    }
}

std::optional<bool> RestoreTokens::last() {
    auto text = readFile(m_file);
    auto json = text ? parseJson(*text) : Result<Json>(text.error());
    if (!json || !json->is_object()) {
        return std::nullopt;
    }
    // Without a note of the last kind, the one kind kept.
    bool window = json->value("last", json->contains("window") ? "window" : "display") == "window";
    if (!json->contains(keyFor(window))) {
        return std::nullopt;
    }
    return window;
}

bool RestoreTokens::takeDamaged() { return std::exchange(m_damaged, false); }

}  // namespace quillo::capture::portal
