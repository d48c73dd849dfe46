// The i3-compatible IPC: "i3-ipc", a 32-bit payload length and message type in native byte
// order, then the payload; GET_TREE (4) answers with the layout tree as JSON.

#include "sway_windows.h"

#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "base/json.h"

namespace quillo::capture::portal {

namespace {

constexpr char kMagic[] = "i3-ipc";
constexpr uint32_t kGetTree = 4;

bool readAll(int fd, void* buffer, size_t size) {
    auto* at = static_cast<char*>(buffer);
    while (size > 0) {
        ssize_t got = read(fd, at, size);
        if (got <= 0) {
            return false;
        }
        at += got;
        size -= static_cast<size_t>(got);
    }
    return true;
}

std::optional<std::string> ask(const char* socketPath, uint32_t type) {
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return std::nullopt;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath, sizeof address.sun_path - 1);
    timeval timeout{1, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    std::optional<std::string> reply;
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
        char header[14];
        uint32_t length = 0;
        std::memcpy(header, kMagic, 6);
        std::memcpy(header + 6, &length, 4);
        std::memcpy(header + 10, &type, 4);
        if (write(fd, header, sizeof header) == static_cast<ssize_t>(sizeof header) &&
            readAll(fd, header, sizeof header) && std::memcmp(header, kMagic, 6) == 0) {
            std::memcpy(&length, header + 6, 4);
            std::string payload(length, '\0');
            if (length < (64u << 20) && readAll(fd, payload.data(), length)) {
                reply = std::move(payload);
            }
        }
    }
    close(fd);
    return reply;
}

void collect(const Json& node, ShownWindows& shown) {
    if (node.contains("pid") && node["pid"].is_number() && node.value("visible", false)) {
        const Json& rect = node["rect"];
        const Json& content = node["window_rect"];
        WindowInfo window;
        window.id = node.value("id", 0u);
        window.pid = node["pid"].get<int32_t>();
        window.title = node.value("name", "");
        window.app = node["app_id"].is_string() ? node["app_id"].get<std::string>() : "";
        window.frame = {rect.value("x", 0.0) + content.value("x", 0.0),
                        rect.value("y", 0.0) + content.value("y", 0.0), content.value("width", 0.0),
                        content.value("height", 0.0)};
        if (node.value("focused", false)) {
            shown.focused = window.id;
        }
        shown.windows.push_back(std::move(window));
    }
    for (const char* children : {"nodes", "floating_nodes"}) {
        if (node.contains(children) && node[children].is_array()) {
            for (const Json& child : node[children]) {
                // Workspaces that aren't shown hold windows that aren't either.
                if (child.value("type", "") == "workspace" && !child.value("visible", true)) {
                    continue;
                }
                collect(child, shown);
            }
        }
    }
}

}  // namespace

ShownWindows parseSwayTree(const std::string& json) {
    ShownWindows shown;
    auto tree = parseJson(json);
    if (tree && tree->is_object()) {
        collect(*tree, shown);
    }
    return shown;
}

ShownWindows swayWindows() {
    const char* socketPath = std::getenv("SWAYSOCK");
    if (socketPath == nullptr || *socketPath == 0) {
        return {};
    }
    auto reply = ask(socketPath, kGetTree);
    return reply ? parseSwayTree(*reply) : ShownWindows{};
}

}  // namespace quillo::capture::portal
