#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace quillo::agent {

// `quillo --mcp`: MCP over standard input and output for agents that start a server process.
// Each line read is one JSON-RPC message, relayed to the running application's control server
// (found through "mcp.json"); each answer is written as one line. When the application is not
// running it is started (the same executable, headless, detached) and waited for up to 20 s.
// Messages are relayed concurrently; every answer is written whole under one lock.
// QUILLO_MCP_LOG names a file that receives "> request" and "< answer" lines.
class MCPBridge {
public:
    struct Endpoint {
        uint16_t port = 0;
        std::string token;
    };

    explicit MCPBridge(std::filesystem::path infoFile);

    // Reads standard input to its end, answers everything in flight, returns the exit status.
    int run();

    // One message: the text to print, or none (accepted notifications, unreachable ones).
    std::optional<std::string> relay(const std::string& line);

    // The live endpoint from "mcp.json", launching the application first when asked.
    std::optional<Endpoint> endpoint(bool launching);

    static constexpr const char* kUnreachable =
        "Quillo isn't responding. Open Quillo and try again.";

private:
    std::filesystem::path m_infoFile;
};

}  // namespace quillo::agent
