#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "base/json.h"

namespace quillo::agent {

// The MCP control server: HTTP/1.1 on loopback, one JSON-RPC message per request and one
// request per connection, every request carrying the per-launch bearer key. Its address and
// key are published in "mcp.json" (permissions 0600) for the stdio bridge and local agents.
//
// Threads: the listener and every connection run on the server's own thread
// ("app.quillo.mcp", one Asio io_context); start() and stop() may be called from any thread.
// The handler is called on that thread and must answer through `reply` without blocking it
// (long work goes to another thread and replies from there).
class ControlServer {
public:
    static constexpr uint16_t kPreferredPort = 47821;
    // Requests larger than this without being complete are dropped.
    static constexpr size_t kMaxRequest = 64 * 1024 * 1024;

    // The answer to one message: a JSON-RPC response, or none (HTTP 202).
    using Reply = std::function<void(std::optional<Json>)>;
    using Handler = std::function<void(Json message, Reply reply)>;

    // `infoFile` is where "mcp.json" is published (supportFolder()/"mcp.json" in the app).
    explicit ControlServer(std::filesystem::path infoFile);
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    // Listens on 47821, or on any free port when that one is taken, and publishes the file.
    // Does nothing while already running (the first handler stays). `port` is for tests.
    void start(Handler handler, uint16_t port = kPreferredPort);
    // Closes the listener and removes the file; connections in flight finish.
    void stop();

    // "http://127.0.0.1:{port}/mcp" while listening.
    std::optional<std::string> address() const;
    uint16_t port() const;
    // The per-launch key: 64 lowercase hex characters from the secure random source.
    const std::string& token() const;
    // The session id sent with every response: an upper-case UUID made once per process.
    const std::string& session() const;
    const std::filesystem::path& infoFile() const;

    // A JSON-RPC error response.
    static Json error(const Json& id, int code, const std::string& message);

private:
    struct Impl;
    std::shared_ptr<Impl> m;
};

}  // namespace quillo::agent
