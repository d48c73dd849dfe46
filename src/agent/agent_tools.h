#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/json.h"
#include "base/result.h"
#include "mcp_protocol.h"
#include "studio.h"
#include "tool_arguments.h"

namespace quillo::agent {

// The table of every tool an agent can call: names, descriptions, argument schemas,
// annotations and handlers. Handlers reach the models through the studio's main queue and run
// long work (export, rendering) on the calling worker thread.
class AgentTools : public ToolProvider {
public:
    using Content = std::vector<Json>;  // text and image items
    using Handler = std::function<Result<Content>(const Arguments&)>;

    struct Tool {
        std::string name;
        std::string description;
        Json properties = Json::object();
        std::vector<std::string> required;
        Handler handler;
    };

    explicit AgentTools(std::shared_ptr<Studio> studio);

    Json definitions() const override;
    Json call(const std::string& name, const Json& arguments) override;

    const std::vector<Tool>& tools() const { return m_tools; }

    // Content items.
    static Json text(const std::string& text);
    static Json jsonText(const Json& object);
    static Json jpeg(const std::string& bytes);

private:
    void build();
    std::shared_ptr<Studio> m_studio;
    std::vector<Tool> m_tools;
};

}  // namespace quillo::agent
