// Feeds arbitrary JSON-RPC messages to the protocol layer with a tool table that reads its
// arguments through every getter, as the real handlers do.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "agent/control_server.h"
#include "agent/mcp_protocol.h"
#include "agent/tool_arguments.h"
#include "base/json.h"

namespace {

class Tools : public quillo::agent::ToolProvider {
public:
    quillo::Json definitions() const override { return quillo::Json::array(); }
    quillo::Json call(const std::string& name, const quillo::Json& arguments) override {
        quillo::agent::Arguments args(arguments);
        (void)args.string(name);
        (void)args.optionalNumber("start");
        (void)args.integer("index");
        (void)args.optionalBoolean("follow");
        (void)args.strings("modifiers");
        return {{"content", quillo::Json::array()}, {"isError", false}};
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static auto tools = std::make_shared<Tools>();
    auto message = quillo::parseJson(std::string_view(reinterpret_cast<const char*>(data), size));
    if (!message || !message->is_object()) {
        return 0;
    }
    auto response = quillo::agent::mcp::handleNow(*message, tools);
    if (response) {
        (void)quillo::toCompactJson(*response);
    }
    return 0;
}
