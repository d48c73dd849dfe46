#include "http_request.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace quillo::agent {

namespace {

std::string_view trim(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
        text.remove_suffix(1);
    }
    return text;
}

const char* reason(int status) {
    switch (status) {
        case 202:
            return "Accepted";
        case 401:
            return "Unauthorized";
        case 403:
            return "Forbidden";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        default:
            return "OK";
    }
}

}  // namespace

std::optional<HttpRequest> parseRequest(std::string_view data) {
    const size_t end = data.find("\r\n\r\n");
    if (end == std::string_view::npos) {
        return std::nullopt;
    }
    HttpRequest request;
    std::string_view head = data.substr(0, end);
    bool first = true;
    while (!head.empty() || first) {
        size_t next = head.find("\r\n");
        std::string_view line = head.substr(0, next);
        head = next == std::string_view::npos ? std::string_view{} : head.substr(next + 2);
        if (first) {
            first = false;
            size_t space = line.find(' ');
            request.method = std::string(line.substr(0, space));
            if (space != std::string_view::npos) {
                std::string_view rest = line.substr(space + 1);
                request.target = std::string(rest.substr(0, rest.find(' ')));
            }
            continue;
        }
        size_t colon = line.find(':');
        if (colon == std::string_view::npos) {
            continue;
        }
        std::string name(trim(line.substr(0, colon)));
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        request.headers[name] = std::string(trim(line.substr(colon + 1)));
    }
    size_t length = 0;
    if (auto it = request.headers.find("content-length"); it != request.headers.end()) {
        const std::string& text = it->second;
        auto [ptr, error] = std::from_chars(text.data(), text.data() + text.size(), length);
        if (error != std::errc() || ptr != text.data() + text.size()) {
            length = 0;
        }
    }
    const size_t bodyStart = end + 4;
    if (data.size() - bodyStart < length) {
        return std::nullopt;
    }
    request.body = std::string(data.substr(bodyStart, length));
    request.size = bodyStart + length;
    return request;
}

std::string httpResponse(int status, const std::string& session, const std::string& body) {
    std::string out = "HTTP/1.1 " + std::to_string(status) + " " + reason(status) + "\r\n";
    out += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    out += "Mcp-Session-Id: " + session + "\r\n";
    out += "Connection: close\r\n";
    if (!body.empty()) {
        out += "Content-Type: application/json\r\n";
    }
    out += "\r\n";
    out += body;
    return out;
}

}  // namespace quillo::agent
