#include "base/json.h"

#include <cmath>

#include <gtest/gtest.h>

namespace quillo {
namespace {

// --- writing

TEST(Json, PrettyPrintsWithSortedKeysAndTwoSpaces) {
    Json value = {{"zeta", 1}, {"alpha", {{"b", true}, {"a", Json::array()}}}};
    EXPECT_EQ(toPrettyJson(value),
              "{\n  \"alpha\": {\n    \"a\": [],\n    \"b\": true\n  },\n  \"zeta\": 1\n}\n");
}

TEST(Json, WritesShortestNumbersThatReadBackExactly) {
    EXPECT_EQ(toCompactJson(Json(0.1)), "0.1");
    EXPECT_EQ(toCompactJson(Json(1.0)), "1");
    EXPECT_EQ(toCompactJson(Json(1.8)), "1.8");
    EXPECT_EQ(toCompactJson(Json(-0.35)), "-0.35");
    for (double value : {0.1 + 0.2, 1.0 / 3.0, 123456.789e-7, 5e-324, 1.7976931348623157e308}) {
        auto back = parseJson(toCompactJson(Json(value)));
        ASSERT_TRUE(back);
        EXPECT_EQ(back->get<double>(), value);
    }
}

TEST(Json, NonFiniteNumbersBecomeNullAndTextIsEscaped) {
    EXPECT_EQ(toCompactJson(Json({{"x", std::nan("")}})), "{\"x\":null}");
    EXPECT_EQ(toCompactJson(Json("a \"b\"\n · c")), "\"a \\\"b\\\"\\n · c\"");
}

TEST(Json, ParseErrorIsAnAppError) {
    auto parsed = parseJson("{\"a\": ");
    ASSERT_FALSE(parsed);
    EXPECT_EQ(parsed.error().message, "The file is not valid JSON.");
}

// --- reading records

struct Inner {
    double value = 0;
};
struct Outer {
    int64_t count = 0;
    std::vector<Inner> items;
    std::optional<std::string> note;
};

Inner readInner(JsonReader& r) { return {r.real("value")}; }
Outer readOuter(JsonReader& r) {
    Outer outer;
    outer.count = r.integer("count");
    outer.items = r.list("items", readInner);
    outer.note = r.optionalText("note");
    return outer;
}

Result<Outer> decode(const char* text) {
    return JsonReader::decodeText<Outer>(text, readOuter, "The test record could not be read");
}

TEST(JsonReader, ReadsRequiredAndOptionalFields) {
    auto outer = decode(R"({"count": 2, "items": [{"value": 1.5}, {"value": 3}], "extra": 1})");
    ASSERT_TRUE(outer) << outer.error().message;
    EXPECT_EQ(outer->count, 2);
    ASSERT_EQ(outer->items.size(), 2u);
    EXPECT_EQ(outer->items[1].value, 3);
    EXPECT_FALSE(outer->note);
}

TEST(JsonReader, ReportsTheFirstProblemWithItsPath) {
    struct Case {
        const char* text;
        const char* message;
    };
    const Case cases[] = {
        {R"({"items": []})", "The test record could not be read: \"count\" is missing."},
        {R"({"count": 1.5, "items": []})",
         "The test record could not be read: \"count\" must be a whole number."},
        {R"({"count": 1, "items": [{"value": 1}, {}]})",
         "The test record could not be read: \"items[1].value\" is missing."},
        {R"({"count": 1, "items": [{"value": "x"}]})",
         "The test record could not be read: \"items[0].value\" must be a number."},
        {R"({"count": 1, "items": {}})",
         "The test record could not be read: \"items\" must be a list."},
        {R"({"count": 1, "items": [], "note": 4})",
         "The test record could not be read: \"note\" must be text."},
        {R"([1, 2])", "The test record could not be read: the file does not hold a JSON object."},
        {R"({"count": 1,)", "The test record could not be read: the file is not valid JSON."},
    };
    for (const Case& c : cases) {
        auto outer = decode(c.text);
        ASSERT_FALSE(outer) << c.text;
        EXPECT_EQ(outer.error().message, c.message) << c.text;
    }
}

TEST(JsonReader, WholeFloatsCountAsWholeNumbersAndNullAsAbsent) {
    auto outer = decode(R"({"count": 3.0, "items": [], "note": null})");
    ASSERT_TRUE(outer);
    EXPECT_EQ(outer->count, 3);
    EXPECT_FALSE(outer->note);
}

}  // namespace
}  // namespace quillo
