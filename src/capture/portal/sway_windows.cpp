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

// A number field of a JSON object, 0 when missing or of another type.
double number(const Json& object, const char* key) {
    auto it = object.is_object() ? object.find(key) : object.end();
    return it != object.end() && it->is_number() ? it->get<double>() : 0;
}

std::string text(const Json& object, const char* key) {
    auto it = object.find(key);
    return it != object.end() && it->is_string() ? it->get<std::string>() : "";
}

bool flag(const Json& object, const char* key, bool otherwise) {
    auto it = object.find(key);
    return it != object.end() && it->is_boolean() ? it->get<bool>() : otherwise;
}

void collect(const Json& node, ShownWindows& shown, int depth) {
    if (!node.is_object() || depth > 64) {
        return;
    }
    auto pid = node.find("pid");
    if (pid != node.end() && pid->is_number_integer() && flag(node, "visible", false)) {
        const Json& rect = node.contains("rect") ? node["rect"] : Json();
        const Json& content = node.contains("window_rect") ? node["window_rect"] : Json();
        WindowInfo window;
        window.id = static_cast<uint32_t>(number(node, "id"));
        window.pid = pid->get<int32_t>();
        window.title = text(node, "name");
        window.app = text(node, "app_id");
        window.frame = {number(rect, "x") + number(content, "x"),
                        number(rect, "y") + number(content, "y"), number(content, "width"),
                        number(content, "height")};
        if (flag(node, "focused", false)) {
            shown.focused = window.id;
        }
        shown.windows.push_back(std::move(window));
    }
    for (const char* children : {"nodes", "floating_nodes"}) {
        if (node.contains(children) && node[children].is_array()) {
            for (const Json& child : node[children]) {
                // Workspaces that aren't shown hold windows that aren't either.
                if (!child.is_object() ||
                    (text(child, "type") == "workspace" && !flag(child, "visible", true))) {
                    continue;
                }
                collect(child, shown, depth + 1);
            }
        }
    }
}

}  // namespace

ShownWindows parseSwayTree(const std::string& json) {
    ShownWindows shown;
    auto tree = parseJson(json);
    if (tree && tree->is_object()) {
        collect(*tree, shown, 0);
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
