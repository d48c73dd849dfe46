#include "agent/demo_script.h"

#include <gtest/gtest.h>

namespace quillo::agent {
namespace {

using Steps = std::vector<std::string>;

TEST(DemoScript, ListsInlineNumbersAndClauses) {
    auto list = demo_script::parse(
        "Onboarding tour:\n1. Open settings\n2) then add a contact and\nStep 3: save it.\n"
        "• Finally, show the list\n");
    EXPECT_EQ(list.title, "Onboarding tour");
    EXPECT_EQ(list.steps, (Steps{"Open settings", "Add a contact", "Save it", "Show the list"}));
    auto bullets = demo_script::parse("* first log in\n– Open the inbox");
    EXPECT_EQ(bullets.steps, (Steps{"Log in", "Open the inbox"}));

    auto inline_ = demo_script::parse("Show search: 1. type a query 2. open the top result");
    EXPECT_EQ(inline_.title, "Show search");
    EXPECT_EQ(inline_.steps, (Steps{"Type a query", "Open the top result"}));
    // Numbers out of order are not a list; version numbers are not items.
    auto outOfOrder = demo_script::parse("Upgrade from 2. to 3. then restart");
    EXPECT_EQ(outOfOrder.steps, (Steps{"Upgrade from 2. to 3", "Restart"}));

    auto clauses = demo_script::parse(
        "Open the app, then create a project; add a file -> share it. Then close everything");
    EXPECT_EQ(clauses.steps, (Steps{"Open the app", "Create a project", "Add a file", "Share it",
                                    "Close everything"}));
    auto arrows = demo_script::parse("Login → Dashboard => Reports, and export");
    EXPECT_EQ(arrows.steps, (Steps{"Login", "Dashboard", "Reports", "Export"}));
    // One clause names no steps; a lowercase word after a full stop is no new sentence.
    EXPECT_TRUE(demo_script::parse("Show how the search works").steps.empty());
    EXPECT_EQ(demo_script::parse("Open v2. then quit").steps, (Steps{"Open v2", "Quit"}));
    EXPECT_TRUE(demo_script::parse("  \n ").steps.empty());
}

TEST(DemoScript, PromptCarriesTheRequest) {
    DemoRequest request;
    request.goal = "Open settings, then turn on dark mode";
    request.length = 90;
    request.pace = DemoPace::Brisk;
    request.rehearse = false;
    request.captions = true;
    request.exportAs = DemoExport::Vertical;
    std::string text = demo_script::prompt(request);
    for (const char* line :
         {"Record a scripted demo of the shared app, following the demo workflow in your "
          "instructions.\nWhat to show, as I wrote it:\nOpen settings, then turn on dark mode\n"
          "Draft steps (confirm and refine them while planning; add any steps the app needs in "
          "between):\n1. Open settings\n2. Turn on dark mode\n",
          "about 1 min 30 s of finished video (clarity wins over hitting it exactly).\n",
          "\"brisk\" to demo_step): the cursor glides for 0.35 s before acting, types at 80 "
          "wpm, and holds each result for 0.5 s. Pass a longer `after` when a step's result "
          "takes longer to appear.\n",
          "Rehearse: no. Plan by looking, then record; rely on retake_step if a step goes "
          "wrong.\nAfter recording:\n- Auto zoom: apply auto_zoom",
          "- Captions: add a short caption",
          "set_style aspect 9:16, then export with format mp4, size 1080p. Use a matching export "
          "preset if a preset tool exists; otherwise ",
          "and the YouTube chapters from get_markers."}) {
        EXPECT_NE(text.find(line), std::string::npos) << line << "\nin:\n" << text;
    }

    DemoRequest plain;
    plain.goal = "Show the search";
    plain.length = 0;
    plain.autoZoom = false;
    plain.removeDeadTime = false;
    plain.exportAs = DemoExport::None;
    text = demo_script::prompt(plain);
    EXPECT_NE(text.find("Steps: plan them from the request by looking at the app."),
              std::string::npos);
    EXPECT_NE(text.find("whatever the steps need, without dawdling."), std::string::npos);
    EXPECT_NE(text.find("- Auto zoom: no;"), std::string::npos);
    EXPECT_EQ(text.find("Dead time"), std::string::npos);
    EXPECT_EQ(text.find("Export"), std::string::npos);

    EXPECT_EQ(std::string(demo_script::instructions).rfind("This chat makes a scripted demo", 0),
              0u);
}

}  // namespace
}  // namespace quillo::agent
