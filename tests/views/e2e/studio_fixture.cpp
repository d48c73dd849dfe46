#include "studio_fixture.h"

#include "base/files.h"
#include "project/edits_json.h"
#include "sdk_install.h"
#include "support/movies.h"

namespace quillo::views {

namespace fs = std::filesystem;

void screenshot(const std::string& display, const fs::path& out, const Rect* area) {
    // Through x11grab, which reads the screen as shown, composited windows included.
    std::string crop;
    if (area) {
        crop = " -vf crop=" + std::to_string(static_cast<int>(area->width)) + ":" +
               std::to_string(static_cast<int>(area->height)) + ":" +
               std::to_string(static_cast<int>(area->x)) + ":" +
               std::to_string(static_cast<int>(area->y));
    }
    testing::ffmpeg(
        "-f x11grab -draw_mouse 0 -i " + display + " -frames:v 1" + crop + " -pix_fmt rgb24", out);
}

double probeDuration(const fs::path& file) {
    auto json = parseJson(testing::probe(file));
    return json ? std::stod((*json)["format"]["duration"].get<std::string>()) : 0;
}

void StudioEndToEnd::startDesktop(bool selfTest, bool tray) {
    std::string why;
    if (!agent::installSdkClient(why)) {
        GTEST_SKIP() << "npm could not install the MCP SDK client: " << why;
    }
    testing::isolateHome(environment, home.path());
    environment.set("QUILLO_LIBRARY", (home / "Library").string());
    environment.set("QUILLO_SUPPORT", (home / "Support").string());
    environment.set("QUILLO_SELFTEST", selfTest ? std::optional<std::string>("1") : std::nullopt);
    environment.set("PULSE_SERVER", "unix:/nonexistent");
    environment.set("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1");
    environment.set("QT_QPA_PLATFORM", "xcb");
    environment.set("QT_ACCESSIBILITY", "1");
    x = testing::XSession::start({1600, 1000, true, true}, why);
    if (!x) {
        GTEST_SKIP() << "no X server: " << why;
    }
    if (tray) {
        if (!testing::commandOutput("command -v trayer").size()) {
            GTEST_SKIP() << "trayer is not installed (scripts/install-deps)";
        }
        x->spawn({"trayer", "--edge", "top", "--align", "right", "--widthtype", "pixel", "--width",
                  "120", "--height", "28", "--SetDockType", "true"});
    }
    fs::create_directories(kArtefacts);
}

void StudioEndToEnd::TearDown() {
    if (quillo > 0 && x) {
        x->stop(quillo);
    }
}

std::optional<Json> StudioEndToEnd::mcpInfo(const fs::path& support) {
    auto text = readFile(support / "mcp.json");
    if (!text) {
        return std::nullopt;
    }
    auto json = parseJson(*text);
    return json ? std::optional<Json>(*json) : std::nullopt;
}

std::string StudioEndToEnd::callTool(const std::string& tool, const Json& arguments) {
    const Json info = mcpInfo(home / "Support").value_or(Json::object());
    if (!info.contains("url")) {
        return "no mcp.json";
    }
    return agent::runSdkScript("call.mjs", "'" + info["url"].get<std::string>() + "' " +
                                               info["token"].get<std::string>() + " " + tool +
                                               " '" + arguments.dump() + "'");
}

project::Edits StudioEndToEnd::savedEdits(const project::LocalProject& project) {
    auto text = readFile(project.file(project::LocalProject::kEdits));
    return text ? project::decodeEdits(*text).value_or(project::Edits{}) : project::Edits{};
}

}  // namespace quillo::views
