#include "project/edits_json.h"

#include <gtest/gtest.h>

namespace quillo::project {
namespace {

Edits everything() {
    Edits edits = Edits::fresh(12.5);
    edits.trimStart = 0.25;
    edits.zooms = {{1, 3, 1.8, 0.25, 0.75, true}, {4, 5, 2, 0.5, 0.5, {}}};
    edits.frame = FrameStyle{3, 0.1, 0.05, false};
    edits.segments = {{{6, 7, 0}, {8, 9.5, 4}}};
    edits.aspect = AspectRatio::Portrait9x16;
    edits.clickHighlights = true;
    edits.cursor = CursorStyle{true, 2, 0.5, true, "neon"};
    edits.reframe = Reframe{1080, 1920, false};
    edits.captions =
        CaptionStyle{true, 1.2, CaptionPosition::Top, CaptionBackground::None, 40, true};
    edits.camera = CameraStyle{CameraLayout::SideLeft, CameraShape::Rounded, 0.3, 0.1, false, true};
    Redaction redaction;
    redaction.start = 1;
    redaction.end = 2;
    redaction.x = 0.1;
    redaction.y = 0.2;
    redaction.width = 0.3;
    redaction.height = 0.4;
    redaction.style = RedactionStyle::Box;
    redaction.strength = 0.9;
    redaction.color = std::vector<double>{1, 0, 0.5};
    redaction.label = "Email";
    edits.redactions = {{redaction}};
    return edits;
}

// --- round trip

TEST(EditsJson, EveryFieldSurvivesARoundTrip) {
    Edits edits = everything();
    auto back = decodeEdits(encodeEdits(edits));
    ASSERT_TRUE(back) << back.error().message;
    EXPECT_EQ(*back, edits);
}

TEST(EditsJson, AbsentOptionalsWriteNoKeysAndReadBackEqual) {
    Edits edits = Edits::fresh(10);
    std::string text = encodeEdits(edits);
    EXPECT_EQ(text,
              "{\n  \"trimEnd\": 10,\n  \"trimStart\": 0,\n  \"version\": 1,\n"
              "  \"zooms\": []\n}\n");
    auto back = decodeEdits(text);
    ASSERT_TRUE(back);
    EXPECT_EQ(*back, edits);
    EXPECT_FALSE(back->segments.has_value());  // absent stays absent, not an empty list
}

TEST(EditsJson, KeysAreWrittenSortedWithRawValues) {
    Json json = toJson(everything());
    EXPECT_EQ(json["aspect"], "9:16");
    EXPECT_EQ(json["camera"]["layout"], "side-left");
    EXPECT_EQ(json["captions"]["background"], "none");
    EXPECT_EQ(json["redactions"][0]["style"], "box");
    EXPECT_FALSE(json["zooms"][1].contains("follow"));
    std::string text = encodeEdits(everything());
    EXPECT_LT(text.find("\"aspect\""), text.find("\"camera\""));
    EXPECT_LT(text.find("\"trimEnd\""), text.find("\"trimStart\""));
}

// --- reading

TEST(EditsJson, OnlyTheFourCoreKeysAreRequired) {
    auto edits = decodeEdits(R"({"version":1,"trimStart":0,"trimEnd":3,"zooms":[],"future":{}})");
    ASSERT_TRUE(edits) << edits.error().message;
    EXPECT_EQ(edits->trimEnd, 3);
    for (const char* key : {"version", "trimStart", "trimEnd", "zooms"}) {
        Json json = toJson(Edits::fresh(3));
        json.erase(key);
        auto missing = editsFromJson(json);
        ASSERT_FALSE(missing) << key;
        EXPECT_EQ(missing.error().message,
                  std::string("The edit recipe could not be read: \"") + key + "\" is missing.");
    }
}

TEST(EditsJson, RedactionDefaultsApplyWhenKeysAreMissing) {
    auto edits = decodeEdits(R"({"version":1,"trimStart":0,"trimEnd":3,"zooms":[],
        "redactions":[{"start":0,"end":1,"x":0,"y":0,"width":0.5,"height":0.5}]})");
    ASSERT_TRUE(edits) << edits.error().message;
    const Redaction& r = edits->redactionList().at(0);
    EXPECT_EQ(r.style, RedactionStyle::Blur);
    EXPECT_EQ(r.strength, 0.6);
    EXPECT_FALSE(r.color);
    EXPECT_FALSE(r.label);
}

TEST(EditsJson, BadMemberValuesFailTheWholeRecipe) {
    struct Case {
        const char* member;  // JSON merged into a fresh recipe
        const char* problem;
    };
    const Case cases[] = {
        {R"({"aspect": "3:2"})", R"("aspect" has the unknown value "3:2")"},
        {R"({"captions": {"visible":true,"size":1,"position":"middle","background":"pill",
             "maxCharacters":36,"highlightWords":false}})",
         R"("captions.position" has the unknown value "middle")"},
        {R"({"captions": {"visible":true,"size":1,"position":"top","background":"blurred",
             "maxCharacters":36,"highlightWords":false}})",
         R"("captions.background" has the unknown value "blurred")"},
        {R"({"camera": {"layout":"center","shape":"circle","size":0.3,"cornerRadius":0.2,
             "mirror":true,"shadow":true}})",
         R"("camera.layout" has the unknown value "center")"},
        {R"({"camera": {"layout":"top-left","shape":"square","size":0.3,"cornerRadius":0.2,
             "mirror":true,"shadow":true}})",
         R"("camera.shape" has the unknown value "square")"},
        {R"({"redactions": [{"start":0,"end":1,"x":0,"y":0,"width":1,"height":1,
             "style":"smudge"}]})",
         R"("redactions[0].style" has the unknown value "smudge")"},
        {R"({"zooms": [{"start":0,"end":1,"scale":2,"x":0.5}]})", R"("zooms[0].y" is missing)"},
        {R"({"segments": [{"start":0,"end":1,"speed":"fast"}]})",
         R"("segments[0].speed" must be a number)"},
        {R"({"frame": {"background":0,"padding":0.1,"cornerRadius":0.02}})",
         R"("frame.shadow" is missing)"},
        {R"({"frame": {"background":1.5,"padding":0.1,"cornerRadius":0.02,"shadow":true}})",
         R"("frame.background" must be a whole number)"},
        {R"({"clickHighlights": 1})", R"("clickHighlights" must be true or false)"},
        {R"({"cursor": {"visible":true,"size":1,"smoothing":0.3}})",
         R"("cursor.hideWhenIdle" is missing)"},
        {R"({"reframe": {"width":1080,"height":1920}})", R"("reframe.follow" is missing)"},
    };
    for (const Case& c : cases) {
        Json json = toJson(Edits::fresh(3));
        json.update(Json::parse(c.member));
        auto edits = editsFromJson(json);
        ASSERT_FALSE(edits) << c.member;
        EXPECT_EQ(edits.error().message,
                  std::string("The edit recipe could not be read: ") + c.problem + ".");
    }
}

TEST(EditsJson, TextThatIsNotJsonFails) {
    auto edits = decodeEdits("{\"version\": 1,");
    ASSERT_FALSE(edits);
    EXPECT_EQ(edits.error().message,
              "The edit recipe could not be read: the file is not valid JSON.");
}

}  // namespace
}  // namespace quillo::project
