#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/json.h"
#include "base/result.h"

namespace quillo::agent {

// One property of a tool's argument schema.
namespace schema {
Json string(const std::string& description, const std::vector<std::string>& options = {});
Json number(const std::string& description);
Json integer(const std::string& description);
Json boolean(const std::string& description);
// The modifier keys held during an input action.
Json modifiers();
}  // namespace schema

// The "arguments" object of a tool call, read through typed getters. Required getters fail with
// "Missing or invalid \"{name}\"." when the argument is absent or of another JSON type; optional
// getters give none when absent and fail the same way when present with the wrong type.
class Arguments {
public:
    explicit Arguments(Json object) : m_object(std::move(object)) {}

    Result<std::string> string(const std::string& name) const;
    Result<std::optional<std::string>> optionalString(const std::string& name) const;
    Result<double> number(const std::string& name) const;
    Result<std::optional<double>> optionalNumber(const std::string& name) const;
    // Numbers truncated to integers.
    Result<int64_t> integer(const std::string& name) const;
    Result<std::optional<int64_t>> optionalInteger(const std::string& name) const;
    Result<std::optional<bool>> optionalBoolean(const std::string& name) const;
    Result<std::vector<std::string>> strings(const std::string& name) const;
    // The raw value, or null.
    const Json& raw(const std::string& name) const;

    static AppError invalid(const std::string& name);

private:
    Json m_object;
};

}  // namespace quillo::agent
