#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "base/json.h"

namespace quillo::agent {

// What the protocol needs of the tool catalogue.
class ToolProvider {
public:
    virtual ~ToolProvider() = default;
    // The "tools" list of tools/list.
    virtual Json definitions() const = 0;
    // Runs one tool and gives its result object (failures are results flagged as errors).
    // May take long (an export); called on a worker thread.
    virtual Json call(const std::string& name, const Json& arguments) = 0;
};

// The JSON-RPC layer between the control server and the tools: "initialize", "ping",
// "tools/list" and "tools/call". Stateless.
namespace mcp {

inline constexpr const char* kDefaultProtocolVersion = "2025-06-18";

// The version reported as serverInfo.version.
const char* serverVersion();

// Handles one message. Quick methods answer at once on the calling thread; tools/call runs the
// tool on a thread of its own and answers from there. `reply` gets the response, or none for
// notifications and messages without a method.
void handle(const Json& message, const std::shared_ptr<ToolProvider>& tools,
            const std::function<void(std::optional<Json>)>& reply);

// The same, waiting for the answer (the stdio tests and the fuzzer use it).
std::optional<Json> handleNow(const Json& message, const std::shared_ptr<ToolProvider>& tools);

}  // namespace mcp

}  // namespace quillo::agent
