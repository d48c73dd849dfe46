#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "enum_table.h"
#include "result.h"

namespace quillo {

using Json = nlohmann::json;

// Project files' text form: keys sorted, two-space indentation, numbers as the shortest text that
// reads back to the same double. Non-finite numbers (which no valid record holds) become null.
std::string toPrettyJson(const Json& value);
// The same rules on one line, for wire formats.
std::string toCompactJson(const Json& value);

// Parses JSON text; a syntax error becomes an AppError naming the place.
Result<Json> parseJson(std::string_view text);

// A JSON array of records, each written by the `toJson` overload found for its type.
template <class T>
Json toJsonList(const std::vector<T>& items) {
    Json list = Json::array();
    for (const T& item : items) {
        list.push_back(toJson(item));
    }
    return list;
}

// Writes `value` under `key` when present; an absent optional leaves no key (never null).
template <class T>
void putOptional(Json& json, const char* key, const std::optional<T>& value) {
    if (value) {
        json[key] = *value;
    }
}

// Reads the fields of one JSON object for a record decoder. The first problem found is kept
// (with the path of the field, like `zooms[1].scale`); later reads return empty values, and the
// decoder reports failure once at the end, so no partly decoded record is ever used. Readers made
// with `child` share the problem slot with their parent.
class JsonReader {
public:
    explicit JsonReader(const Json& object);

    // Required fields: a missing key or a value of the wrong type is a problem.
    double real(std::string_view key);
    int64_t integer(std::string_view key);
    bool boolean(std::string_view key);
    std::string text(std::string_view key);

    // Optional fields: a missing key or null gives nullopt; a wrong type is still a problem.
    std::optional<double> optionalReal(std::string_view key);
    std::optional<int64_t> optionalInteger(std::string_view key);
    std::optional<bool> optionalBoolean(std::string_view key);
    std::optional<std::string> optionalText(std::string_view key);

    // A stored enumeration (see enum_table.h); raw text it does not know is a problem.
    template <class E>
    E rawValue(std::string_view key);
    template <class E>
    std::optional<E> optionalRawValue(std::string_view key);

    // Nested object and list of objects, each decoded by `decode` with a child reader.
    template <class T>
    std::optional<T> optionalObject(std::string_view key, T (*decode)(JsonReader&));
    template <class T>
    std::vector<T> list(std::string_view key, T (*decode)(JsonReader&));
    template <class T>
    std::optional<std::vector<T>> optionalList(std::string_view key, T (*decode)(JsonReader&));
    // A list of plain numbers.
    std::optional<std::vector<double>> optionalRealList(std::string_view key);

    void fail(const std::string& path, const std::string& problem);
    bool ok() const { return !m_problem->has_value(); }
    JsonReader(const JsonReader&) = delete;
    JsonReader& operator=(const JsonReader&) = delete;
    // "\"zooms[1].scale\" is missing", without a final full stop.
    const std::string& problem() const;

    // Decodes a whole top-level document: `decode` reads the object; failure gives
    // "{prefix}: {problem}." as the message.
    template <class T>
    static Result<T> decodeDocument(const Json& document, T (*decode)(JsonReader&),
                                    const std::string& prefix);
    // The same from JSON text; text that is not JSON gives "{prefix}: the file is not valid JSON."
    template <class T>
    static Result<T> decodeText(std::string_view text, T (*decode)(JsonReader&),
                                const std::string& prefix);

private:
    // A reader for a member object (index npos) or list item of `parent`, at `key`. Paths are
    // only spelled out when a problem is found, so reading a long list costs no strings.
    JsonReader(const Json& object, const JsonReader* parent, std::string_view key,
               size_t index = std::string::npos);
    // The value at `key`, or nullptr when absent or null (a problem when `required`).
    const Json* find(std::string_view key, bool required);
    std::string pathOf(std::string_view key) const;
    std::string path() const;
    template <class T>
    std::vector<T> decodeList(const Json& array, std::string_view key, T (*decode)(JsonReader&));
    std::optional<double> readReal(const Json* value, std::string_view key);
    std::optional<int64_t> readInteger(const Json* value, std::string_view key);
    std::optional<bool> readBoolean(const Json* value, std::string_view key);
    std::optional<std::string> readText(const Json* value, std::string_view key);

    const Json& m_object;
    const JsonReader* m_parent = nullptr;
    std::string_view m_key;
    size_t m_index = std::string::npos;
    std::optional<std::string> m_ownProblem;  // used by the root reader only
    std::optional<std::string>* m_problem;    // the root's slot
};

template <class E>
E JsonReader::rawValue(std::string_view key) {
    if (!find(key, true)) {
        return firstCase<E>();
    }
    return optionalRawValue<E>(key).value_or(firstCase<E>());
}

template <class E>
std::optional<E> JsonReader::optionalRawValue(std::string_view key) {
    std::optional<std::string> raw = optionalText(key);
    if (!raw) {
        return std::nullopt;
    }
    std::optional<E> value = fromRawValue<E>(*raw);
    if (!value) {
        fail(pathOf(key), "has the unknown value \"" + *raw + "\"");
    }
    return value;
}

template <class T>
std::optional<T> JsonReader::optionalObject(std::string_view key, T (*decode)(JsonReader&)) {
    const Json* value = find(key, false);
    if (value == nullptr) {
        return std::nullopt;
    }
    if (!value->is_object()) {
        fail(pathOf(key), "must be an object");
        return std::nullopt;
    }
    JsonReader child(*value, this, key);
    T result = decode(child);
    if (!ok()) {
        return std::nullopt;
    }
    return result;
}

template <class T>
std::vector<T> JsonReader::list(std::string_view key, T (*decode)(JsonReader&)) {
    const Json* value = find(key, true);
    if (value == nullptr) {
        return {};
    }
    return decodeList(*value, key, decode);
}

template <class T>
std::optional<std::vector<T>> JsonReader::optionalList(std::string_view key,
                                                       T (*decode)(JsonReader&)) {
    const Json* value = find(key, false);
    if (value == nullptr) {
        return std::nullopt;
    }
    std::vector<T> result = decodeList(*value, key, decode);
    if (!ok()) {
        return std::nullopt;
    }
    return result;
}

template <class T>
std::vector<T> JsonReader::decodeList(const Json& array, std::string_view key,
                                      T (*decode)(JsonReader&)) {
    std::vector<T> result;
    if (!array.is_array()) {
        fail(pathOf(key), "must be a list");
        return result;
    }
    result.reserve(array.size());
    for (size_t i = 0; i < array.size() && ok(); ++i) {
        if (!array[i].is_object()) {
            fail(pathOf(key) + "[" + std::to_string(i) + "]", "must be an object");
            break;
        }
        JsonReader child(array[i], this, key, i);
        result.push_back(decode(child));
    }
    if (!ok()) {
        result.clear();
    }
    return result;
}

template <class T>
Result<T> JsonReader::decodeDocument(const Json& document, T (*decode)(JsonReader&),
                                     const std::string& prefix) {
    if (!document.is_object()) {
        return AppError(prefix + ": the file does not hold a JSON object.");
    }
    JsonReader reader(document);
    T value = decode(reader);
    if (!reader.ok()) {
        return AppError(prefix + ": " + reader.problem() + ".");
    }
    return value;
}

template <class T>
Result<T> JsonReader::decodeText(std::string_view text, T (*decode)(JsonReader&),
                                 const std::string& prefix) {
    auto json = parseJson(text);
    if (!json) {
        return AppError(prefix + ": the file is not valid JSON.", json.error().detail);
    }
    return decodeDocument(*json, decode, prefix);
}

}  // namespace quillo
