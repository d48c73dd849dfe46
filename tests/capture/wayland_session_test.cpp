// The headless Wayland desktop the portal tests run on: sway, the ScreenCast portal with the
// rebuilt backend, typing into a real client, the optional services, and a clean end.

#include "support/wayland_session.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "support/eventually.h"
#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::capture {
namespace {

namespace fs = std::filesystem;
using testing::WaylandSession;

std::optional<std::string> variable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

std::string fileText(const fs::path& file) {
    std::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The current mode of HEADLESS-1 as "WxH", from sway.
std::string outputSize(WaylandSession& session) {
    auto outputs = nlohmann::json::parse(session.swaymsg({"-t", "get_outputs"}), nullptr, false);
    for (const auto& output : outputs.is_array() ? outputs : nlohmann::json::array()) {
        if (output.value("name", "") == "HEADLESS-1") {
            const auto& mode = output["current_mode"];
            return std::to_string(mode.value("width", 0)) + "x" +
                   std::to_string(mode.value("height", 0));
        }
    }
    return "no HEADLESS-1";
}

// --- the portal

TEST(WaylandSession, PortalAnswersAfterAColdStart) {
    auto started = std::chrono::steady_clock::now();
    std::string why;
    auto session = WaylandSession::start({}, why);
    if (!session) {
        GTEST_SKIP() << "no Wayland session: " << why;
    }
    double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    auto sources = session->screenCastProperty("AvailableSourceTypes");
    auto cursors = session->screenCastProperty("AvailableCursorModes");
    auto version = session->screenCastProperty("version");
    std::cout << "cold start to a ready portal: " << seconds << " s; AvailableSourceTypes "
              << sources.value_or(0) << ", AvailableCursorModes " << cursors.value_or(0)
              << ", version " << version.value_or(0) << "\n";
    ASSERT_TRUE(sources && cursors && version);
    EXPECT_TRUE(*sources & 1) << "monitor sources";
    EXPECT_TRUE(*cursors & 2) << "embedded cursor";
    EXPECT_GE(*version, 4u) << "restore tokens need version 4";
    EXPECT_EQ(outputSize(*session), "1920x1080");
}

// --- clients

TEST(WaylandSession, TypedLinesReachTheFocusedTerminalWhole) {
    std::string why;
    auto session = WaylandSession::start({.portal = false}, why);
    if (!session) {
        GTEST_SKIP() << "no Wayland session: " << why;
    }
    testing::TempFolder folder;
    const fs::path typed = folder / "typed.txt";
    session->spawn(
        {"foot", "--app-id", "quillo-foot", "sh", "-c",
         "read first; read second; printf '%s|%s' \"$first\" \"$second\" > " + typed.string()});
    auto area = session->waitForWindow("quillo-foot");
    ASSERT_TRUE(area) << "foot did not show";
    // The only window fills the output: no bar, no borders.
    EXPECT_EQ(*area, (Rect{0, 0, 1920, 1080}));
    // Each call gets a fresh virtual keyboard, so each could lose its first keys; a leading
    // dash must not be taken for an option.
    ASSERT_TRUE(session->type("Hello, Wayland: 'quoted' & $HOME\n"));
    ASSERT_TRUE(session->type("-x\n"));
    EXPECT_TRUE(testing::eventually([&] { return fs::exists(typed); }));
    EXPECT_TRUE(testing::eventually([&] {
        return fileText(typed) == "Hello, Wayland: 'quoted' & $HOME|-x";
    })) << fileText(typed);
}

TEST(WaylandSession, WaitingForAMissingWindowGivesUp) {
    std::string why;
    auto session = WaylandSession::start({.portal = false}, why);
    if (!session) {
        GTEST_SKIP() << "no Wayland session: " << why;
    }
    EXPECT_FALSE(session->waitForWindow("no-such-app", 0.3));
}

// --- options and the end

TEST(WaylandSession, OptionalServicesAnswer) {
    std::string why;
    auto session = WaylandSession::start(
        {.width = 1280, .height = 720, .portal = false, .sound = true, .accessibility = true}, why);
    if (!session) {
        GTEST_SKIP() << "no Wayland session: " << why;
    }
    EXPECT_EQ(outputSize(*session), "1280x720");
    EXPECT_NE(testing::commandOutput("pactl info 2>/dev/null").find("PipeWire"), std::string::npos);
    EXPECT_NE(testing::commandOutput("dbus-send --session --print-reply=literal "
                                     "--dest=org.a11y.Bus /org/a11y/bus org.a11y.Bus.GetAddress")
                  .find("unix:"),
              std::string::npos);
}

TEST(WaylandSession, EndsEverythingAndRestoresTheEnvironment) {
    testing::ScopedEnvironment environment;
    environment.set("DISPLAY", ":99");
    environment.set("WAYLAND_DISPLAY", std::nullopt);
    auto runtimeBefore = variable("XDG_RUNTIME_DIR");
    std::string why;
    auto session = WaylandSession::start({.portal = false}, why);
    if (!session) {
        GTEST_SKIP() << "no Wayland session: " << why;
    }
    fs::path folder = session->runtimeDir();
    struct stat info {};
    ASSERT_EQ(::stat(folder.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);
    EXPECT_EQ(info.st_uid, ::getuid());
    EXPECT_EQ(variable("DISPLAY"), std::nullopt);
    EXPECT_EQ(variable("XDG_RUNTIME_DIR"), folder.string());
    EXPECT_EQ(variable("WAYLAND_DISPLAY"), session->waylandDisplay());
    pid_t client = session->spawn({"sleep", "60"});

    session.reset();
    EXPECT_EQ(::kill(client, 0), -1) << "a client outlived the session";
    EXPECT_FALSE(fs::exists(folder.parent_path()));
    EXPECT_EQ(variable("DISPLAY"), ":99");
    EXPECT_EQ(variable("WAYLAND_DISPLAY"), std::nullopt);
    EXPECT_EQ(variable("XDG_RUNTIME_DIR"), runtimeBefore);
    // Nothing that ran in the session is left, sway included (it runs as another user as root).
    EXPECT_EQ(testing::commandOutput("grep -l -s -a " + folder.parent_path().string() +
                                     " /proc/[0-9]*/environ"),
              "");
}

}  // namespace
}  // namespace quillo::capture
