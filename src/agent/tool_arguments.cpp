#include "tool_arguments.h"

#include <cmath>

namespace quillo::agent {

namespace schema {

Json string(const std::string& description, const std::vector<std::string>& options) {
    Json property = {{"type", "string"}, {"description", description}};
    if (!options.empty()) {
        property["enum"] = options;
    }
    return property;
}

Json number(const std::string& description) {
    return {{"type", "number"}, {"description", description}};
}

Json integer(const std::string& description) {
    return {{"type", "integer"}, {"description", description}};
}

Json boolean(const std::string& description) {
    return {{"type", "boolean"}, {"description", description}};
}

Json modifiers() {
    return {
        {"type", "array"},
        {"items",
         {{"type", "string"}, {"enum", {"command", "control", "option", "alt", "shift", "super"}}}},
        {"description", "Modifier keys held during the action."}};
}

}  // namespace schema

namespace {
const Json kNull = nullptr;
}

AppError Arguments::invalid(const std::string& name) {
    return AppError("Missing or invalid \"" + name + "\".");
}

const Json& Arguments::raw(const std::string& name) const {
    auto it = m_object.find(name);
    return it == m_object.end() ? kNull : *it;
}

Result<std::string> Arguments::string(const std::string& name) const {
    const Json& value = raw(name);
    if (!value.is_string()) {
        return invalid(name);
    }
    return value.get<std::string>();
}

Result<std::optional<std::string>> Arguments::optionalString(const std::string& name) const {
    const Json& value = raw(name);
    if (value.is_null()) {
        return std::optional<std::string>();
    }
    if (!value.is_string()) {
        return invalid(name);
    }
    return std::optional<std::string>(value.get<std::string>());
}

Result<double> Arguments::number(const std::string& name) const {
    const Json& value = raw(name);
    if (!value.is_number() || !std::isfinite(value.get<double>())) {
        return invalid(name);
    }
    return value.get<double>();
}

Result<std::optional<double>> Arguments::optionalNumber(const std::string& name) const {
    if (raw(name).is_null()) {
        return std::optional<double>();
    }
    auto value = number(name);
    if (!value) {
        return value.error();
    }
    return std::optional<double>(*value);
}

Result<int64_t> Arguments::integer(const std::string& name) const {
    auto value = number(name);
    if (!value || std::abs(*value) > 9e15) {
        return invalid(name);
    }
    return static_cast<int64_t>(std::trunc(*value));
}

Result<std::optional<int64_t>> Arguments::optionalInteger(const std::string& name) const {
    if (raw(name).is_null()) {
        return std::optional<int64_t>();
    }
    auto value = integer(name);
    if (!value) {
        return value.error();
    }
    return std::optional<int64_t>(*value);
}

Result<std::optional<bool>> Arguments::optionalBoolean(const std::string& name) const {
    const Json& value = raw(name);
    if (value.is_null()) {
        return std::optional<bool>();
    }
    if (!value.is_boolean()) {
        return invalid(name);
    }
    return std::optional<bool>(value.get<bool>());
}

Result<std::vector<std::string>> Arguments::strings(const std::string& name) const {
    const Json& value = raw(name);
    std::vector<std::string> out;
    if (value.is_null()) {
        return out;
    }
    if (!value.is_array()) {
        return invalid(name);
    }
    for (const Json& item : value) {
        if (!item.is_string()) {
            return invalid(name);
        }
        out.push_back(item.get<std::string>());
    }
    return out;
}

}  // namespace quillo::agent
