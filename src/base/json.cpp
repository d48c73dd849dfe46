#include "json.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace quillo {

namespace {

void writeNumber(std::string& out, double value) {
    if (!std::isfinite(value)) {
        out += "null";
        return;
    }
    char buffer[32];
    // std::to_chars without a precision gives the shortest text that reads back exactly.
    auto [end, ec] = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, end);
}

void writeString(std::string& out, const std::string& text) {
    // Most keys and values are plain ASCII with nothing to escape; copy those straight through
    // and let the library handle escapes and UTF-8 checking (bad bytes become U+FFFD).
    for (unsigned char c : text) {
        if (c < 0x20 || c == '"' || c == '\\' || c >= 0x80) {
            out += Json(text).dump(-1, ' ', false, Json::error_handler_t::replace);
            return;
        }
    }
    out += '"';
    out += text;
    out += '"';
}

void write(std::string& out, const Json& value, int indent, int depth) {
    const bool pretty = indent > 0;
    auto newline = [&](int level) {
        if (pretty) {
            out += '\n';
            out.append(static_cast<size_t>(level * indent), ' ');
        }
    };
    switch (value.type()) {
        case Json::value_t::object: {
            if (value.empty()) {
                out += "{}";
                return;
            }
            out += '{';
            bool first = true;
            // nlohmann's object is a std::map, so iteration is already in sorted key order.
            for (const auto& [key, member] : value.items()) {
                if (!first) {
                    out += ',';
                }
                first = false;
                newline(depth + 1);
                writeString(out, key);
                out += pretty ? ": " : ":";
                write(out, member, indent, depth + 1);
            }
            newline(depth);
            out += '}';
            return;
        }
        case Json::value_t::array: {
            if (value.empty()) {
                out += "[]";
                return;
            }
            out += '[';
            for (size_t i = 0; i < value.size(); ++i) {
                if (i > 0) {
                    out += ',';
                }
                newline(depth + 1);
                write(out, value[i], indent, depth + 1);
            }
            newline(depth);
            out += ']';
            return;
        }
        case Json::value_t::number_float:
            writeNumber(out, value.get<double>());
            return;
        case Json::value_t::string:
            writeString(out, value.get_ref<const std::string&>());
            return;
        default:
            out += value.dump();
            return;
    }
}

bool isIntegral(const Json& value) {
    if (value.is_number_integer()) {
        return true;
    }
    if (value.is_number_float()) {
        double d = value.get<double>();
        return std::isfinite(d) && std::trunc(d) == d && std::fabs(d) < 9.0e15;
    }
    return false;
}

}  // namespace

std::string toPrettyJson(const Json& value) {
    std::string out;
    write(out, value, 2, 0);
    out += '\n';
    return out;
}

std::string toCompactJson(const Json& value) {
    std::string out;
    write(out, value, 0, 0);
    return out;
}

Result<Json> parseJson(std::string_view text) {
    try {
        return Json::parse(text.begin(), text.end());
    } catch (const Json::exception& e) {
        return AppError("The file is not valid JSON.", e.what());
    }
}

JsonReader::JsonReader(const Json& object) : m_object(object), m_problem(&m_ownProblem) {}

JsonReader::JsonReader(const Json& object, const JsonReader* parent, std::string_view key,
                       size_t index)
    : m_object(object),
      m_parent(parent),
      m_key(key),
      m_index(index),
      m_problem(parent->m_problem) {}

std::string JsonReader::path() const {
    if (m_parent == nullptr) {
        return {};
    }
    std::string path = m_parent->pathOf(m_key);
    if (m_index != std::string::npos) {
        path += "[" + std::to_string(m_index) + "]";
    }
    return path;
}

std::string JsonReader::pathOf(std::string_view key) const {
    std::string base = path();
    return base.empty() ? std::string(key) : base + "." + std::string(key);
}

void JsonReader::fail(const std::string& path, const std::string& problem) {
    if (ok()) {
        *m_problem = "\"" + path + "\" " + problem;
    }
}

const std::string& JsonReader::problem() const {
    static const std::string none;
    return m_problem->has_value() ? **m_problem : none;
}

const Json* JsonReader::find(std::string_view key, bool required) {
    if (!ok() || !m_object.is_object()) {
        return nullptr;
    }
    auto it = m_object.find(key);
    if (it == m_object.end() || it->is_null()) {
        if (required) {
            fail(pathOf(key), "is missing");
        }
        return nullptr;
    }
    return &*it;
}

std::optional<double> JsonReader::readReal(const Json* value, std::string_view key) {
    if (value == nullptr) {
        return std::nullopt;
    }
    if (!value->is_number()) {
        fail(pathOf(key), "must be a number");
        return std::nullopt;
    }
    return value->get<double>();
}

std::optional<int64_t> JsonReader::readInteger(const Json* value, std::string_view key) {
    if (value == nullptr) {
        return std::nullopt;
    }
    if (!isIntegral(*value)) {
        fail(pathOf(key), "must be a whole number");
        return std::nullopt;
    }
    if (value->is_number_unsigned() &&
        value->get<uint64_t>() > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
        fail(pathOf(key), "is too large");
        return std::nullopt;
    }
    return value->is_number_float() ? static_cast<int64_t>(value->get<double>())
                                    : value->get<int64_t>();
}

std::optional<bool> JsonReader::readBoolean(const Json* value, std::string_view key) {
    if (value == nullptr) {
        return std::nullopt;
    }
    if (!value->is_boolean()) {
        fail(pathOf(key), "must be true or false");
        return std::nullopt;
    }
    return value->get<bool>();
}

std::optional<std::string> JsonReader::readText(const Json* value, std::string_view key) {
    if (value == nullptr) {
        return std::nullopt;
    }
    if (!value->is_string()) {
        fail(pathOf(key), "must be text");
        return std::nullopt;
    }
    return value->get<std::string>();
}

double JsonReader::real(std::string_view key) { return readReal(find(key, true), key).value_or(0); }

int64_t JsonReader::integer(std::string_view key) {
    return readInteger(find(key, true), key).value_or(0);
}

bool JsonReader::boolean(std::string_view key) {
    return readBoolean(find(key, true), key).value_or(false);
}

std::string JsonReader::text(std::string_view key) {
    return readText(find(key, true), key).value_or(std::string());
}

std::optional<double> JsonReader::optionalReal(std::string_view key) {
    return readReal(find(key, false), key);
}

std::optional<int64_t> JsonReader::optionalInteger(std::string_view key) {
    return readInteger(find(key, false), key);
}

std::optional<bool> JsonReader::optionalBoolean(std::string_view key) {
    return readBoolean(find(key, false), key);
}

std::optional<std::string> JsonReader::optionalText(std::string_view key) {
    return readText(find(key, false), key);
}

std::optional<std::vector<double>> JsonReader::optionalRealList(std::string_view key) {
    const Json* value = find(key, false);
    if (value == nullptr) {
        return std::nullopt;
    }
    if (!value->is_array()) {
        fail(pathOf(key), "must be a list");
        return std::nullopt;
    }
    std::vector<double> result;
    for (size_t i = 0; i < value->size(); ++i) {
        if (!(*value)[i].is_number()) {
            fail(pathOf(key) + "[" + std::to_string(i) + "]", "must be a number");
            return std::nullopt;
        }
        result.push_back((*value)[i].get<double>());
    }
    return result;
}

}  // namespace quillo
