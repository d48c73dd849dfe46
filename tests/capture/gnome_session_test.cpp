// The headless GNOME desktop the portal tests run on: the chain comes up, the portal offers what
// only GNOME offers, and its consent dialogs are answered over AT-SPI.

#include "support/gnome_session.h"

#include <chrono>
#include <cstdlib>
#include <gio/gio.h>
#include <iostream>
#include <optional>
#include <signal.h>
#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace quillo::capture {
namespace {

using testing::GnomeSession;
using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// A bare ScreenCast client: each call returns at once and answers later through a Request's
// Response signal, as libportal sees it. Lives on the test's thread, with a context of its own.
class CastClient {
public:
    explicit CastClient(std::string interface = "org.freedesktop.portal.ScreenCast")
        : m_interface(std::move(interface)) {
        g_main_context_push_thread_default(m_context);
        const char* address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
        m_bus = g_dbus_connection_new_for_address_sync(
            address,
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr);
        if (m_bus != nullptr) {
            std::string name = g_dbus_connection_get_unique_name(m_bus) + 1;  // without ':'
            for (char& c : name) {
                c = c == '.' ? '_' : c;
            }
            m_sender = name;
        }
    }
    ~CastClient() {
        g_clear_pointer(&m_results, g_variant_unref);
        if (m_bus != nullptr) {
            g_dbus_connection_close_sync(m_bus, nullptr, nullptr);
            g_object_unref(m_bus);
        }
        g_main_context_pop_thread_default(m_context);
        g_main_context_unref(m_context);
    }

    bool connected() const { return m_bus != nullptr; }

    // Sends `method` with `args` (its options last, without handle_token) and returns at once;
    // false when the portal refused the call itself.
    bool send(const char* method, const std::string& session, GVariantBuilder* options) {
        std::string token = "quillo" + std::to_string(++m_requests);
        std::string path = "/org/freedesktop/portal/desktop/request/" + m_sender + "/" + token;
        m_response.reset();
        g_clear_pointer(&m_results, g_variant_unref);
        m_subscription = g_dbus_connection_signal_subscribe(
            m_bus, "org.freedesktop.portal.Desktop", "org.freedesktop.portal.Request", "Response",
            path.c_str(), nullptr, G_DBUS_SIGNAL_FLAGS_NONE, &CastClient::onResponse, this,
            nullptr);
        g_variant_builder_add(options, "{sv}", "handle_token", g_variant_new_string(token.c_str()));
        GVariant* args = nullptr;
        if (std::string(method) == "CreateSession") {
            args = g_variant_new("(a{sv})", options);
        } else if (std::string(method) == "SelectSources" ||
                   std::string(method) == "SelectDevices") {
            args = g_variant_new("(oa{sv})", session.c_str(), options);
        } else {
            args = g_variant_new("(osa{sv})", session.c_str(), "", options);
        }
        GError* error = nullptr;
        GVariant* reply = g_dbus_connection_call_sync(
            m_bus, "org.freedesktop.portal.Desktop", "/org/freedesktop/portal/desktop",
            m_interface.c_str(), method, args, G_VARIANT_TYPE("(o)"), G_DBUS_CALL_FLAGS_NONE, 5000,
            nullptr, &error);
        if (reply != nullptr) {
            g_variant_unref(reply);
        }
        if (error != nullptr) {
            std::cout << method << " refused: " << error->message << "\n";
            g_error_free(error);
            return false;
        }
        return true;
    }

    // The response code of the last request (0: granted), waiting up to `seconds`; its
    // results stay in results().
    std::optional<uint32_t> response(double seconds) {
        auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
        while (!m_response && Clock::now() < deadline) {
            g_main_context_iteration(m_context, FALSE);
            g_usleep(10000);
        }
        g_dbus_connection_signal_unsubscribe(m_bus, m_subscription);
        return m_response;
    }

    // A string or uint32 result of the last response, as text; empty when absent.
    std::string result(const char* key) const {
        GVariant* value =
            m_results != nullptr ? g_variant_lookup_value(m_results, key, nullptr) : nullptr;
        if (value == nullptr) {
            return {};
        }
        std::string text;
        if (g_variant_is_of_type(value, G_VARIANT_TYPE_STRING) ||
            g_variant_is_of_type(value, G_VARIANT_TYPE_OBJECT_PATH)) {
            text = g_variant_get_string(value, nullptr);
        } else {
            gchar* printed = g_variant_print(value, FALSE);
            text = printed;
            g_free(printed);
        }
        g_variant_unref(value);
        return text;
    }

    // Requests a session and its sources; the session's handle, or empty.
    std::string prepare(uint32_t types, const std::string& restoreToken) {
        GVariantBuilder options;
        g_variant_builder_init(&options, G_VARIANT_TYPE("a{sv}"));
        g_variant_builder_add(&options, "{sv}", "session_handle_token",
                              g_variant_new_string(("s" + std::to_string(m_requests)).c_str()));
        if (!send("CreateSession", "", &options) || response(5) != 0u) {
            return {};
        }
        std::string session = result("session_handle");
        g_variant_builder_init(&options, G_VARIANT_TYPE("a{sv}"));
        g_variant_builder_add(&options, "{sv}", "types", g_variant_new_uint32(types));
        g_variant_builder_add(&options, "{sv}", "cursor_mode", g_variant_new_uint32(4));
        g_variant_builder_add(&options, "{sv}", "persist_mode", g_variant_new_uint32(2));
        if (!restoreToken.empty()) {
            g_variant_builder_add(&options, "{sv}", "restore_token",
                                  g_variant_new_string(restoreToken.c_str()));
        }
        return send("SelectSources", session, &options) && response(5) == 0u ? session
                                                                             : std::string();
    }

    bool start(const std::string& session) {
        GVariantBuilder options;
        g_variant_builder_init(&options, G_VARIANT_TYPE("a{sv}"));
        return send("Start", session, &options);
    }

private:
    static void onResponse(GDBusConnection*, const gchar*, const gchar*, const gchar*, const gchar*,
                           GVariant* parameters, gpointer self) {
        auto* client = static_cast<CastClient*>(self);
        uint32_t code = 0;
        GVariant* results = nullptr;
        g_variant_get(parameters, "(u@a{sv})", &code, &results);
        client->m_response = code;
        g_clear_pointer(&client->m_results, g_variant_unref);
        client->m_results = results;
    }

    std::string m_interface;
    GMainContext* m_context = g_main_context_new();
    GDBusConnection* m_bus = nullptr;
    std::string m_sender;
    unsigned m_subscription = 0;
    int m_requests = 0;
    std::optional<uint32_t> m_response;
    GVariant* m_results = nullptr;
};

// --- the chain

TEST(GnomeSession, PortalOffersWindowsCursorMetadataAndRemoteDesktop) {
    auto started = Clock::now();
    std::string why;
    auto session = GnomeSession::start({}, why);
    if (!session) {
        GTEST_SKIP() << "no GNOME session: " << why;
    }
    double seconds = secondsSince(started);
    auto sources =
        session->portalProperty("org.freedesktop.portal.ScreenCast", "AvailableSourceTypes");
    auto cursors =
        session->portalProperty("org.freedesktop.portal.ScreenCast", "AvailableCursorModes");
    auto devices =
        session->portalProperty("org.freedesktop.portal.RemoteDesktop", "AvailableDeviceTypes");
    std::cout << "cold start to a ready portal: " << seconds << " s; AvailableSourceTypes "
              << sources.value_or(0) << ", AvailableCursorModes " << cursors.value_or(0)
              << ", AvailableDeviceTypes " << devices.value_or(0) << "\n";
    ASSERT_TRUE(sources && cursors && devices);
    EXPECT_TRUE(*sources & 2) << "window sources";
    EXPECT_TRUE(*cursors & 4) << "cursor metadata";
    EXPECT_TRUE(*devices & 2) << "a pointer";
    EXPECT_EQ(std::getenv("DISPLAY"), nullptr);
    EXPECT_STREQ(std::getenv("XDG_CURRENT_DESKTOP"), "GNOME");
}

TEST(GnomeSession, EndsEverythingAndRestoresTheEnvironment) {
    const char* before = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    std::string saved = before != nullptr ? before : "";
    std::string why;
    auto session = GnomeSession::start({.portal = false}, why);
    if (!session) {
        GTEST_SKIP() << "no GNOME session: " << why;
    }
    auto folder = session->runtimeDir().parent_path();
    pid_t client = session->spawn({"sleep", "60"});
    session.reset();
    EXPECT_EQ(::kill(client, 0), -1) << "a client outlived the session";
    EXPECT_FALSE(std::filesystem::exists(folder));
    const char* after = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    EXPECT_EQ(after != nullptr ? std::string(after) : "", saved);
}

// --- windows and dialogs

TEST(GnomeSession, WindowCastIsGrantedThroughTheDialogAndThenRestored) {
    std::string why;
    auto session = GnomeSession::start({}, why);
    if (!session) {
        GTEST_SKIP() << "no GNOME session: " << why;
    }
    const std::string title = "Quillo GNOME form";
    session->spawn({QUILLO_GTK_ENTRY, title});
    ASSERT_TRUE(session->waitForWindow(title, 15)) << "the form did not show on AT-SPI";
    EXPECT_FALSE(session->waitForWindow("No such window", 0.3));

    CastClient client;
    ASSERT_TRUE(client.connected());
    std::string handle = client.prepare(2, "");
    ASSERT_FALSE(handle.empty());
    auto asked = Clock::now();
    ASSERT_TRUE(client.start(handle));
    // The requester stays alive until the dialog is gone, whatever happens.
    bool answered = session->answerScreenShare(title, 15);
    auto code = client.response(answered ? 10 : 1);
    std::cout << "window cast granted through the dialog in " << secondsSince(asked) << " s\n";
    ASSERT_TRUE(answered) << "no Screen Share dialog listing the form";
    ASSERT_EQ(code, 0u);
    EXPECT_NE(client.result("streams").find("'source_type': <uint32 2>"), std::string::npos)
        << client.result("streams");
    std::string token = client.result("restore_token");
    ASSERT_FALSE(token.empty());

    // The token brings the same window back without a dialog.
    CastClient again;
    handle = again.prepare(2, token);
    ASSERT_FALSE(handle.empty());
    asked = Clock::now();
    ASSERT_TRUE(again.start(handle));
    EXPECT_EQ(again.response(5), 0u);
    std::cout << "restored without a dialog in " << secondsSince(asked) << " s\n";
}

TEST(GnomeSession, NoDialogMeansNoAnswer) {
    std::string why;
    auto session = GnomeSession::start({}, why);
    if (!session) {
        GTEST_SKIP() << "no GNOME session: " << why;
    }
    auto asked = Clock::now();
    EXPECT_FALSE(session->answerScreenShare("anything", 0.5));
    EXPECT_FALSE(session->answerRemoteDesktop(0.5));
    EXPECT_LT(secondsSince(asked), 8) << "gave up late";
}

TEST(GnomeSession, PointerAndKeysMoveWithoutAsking) {
    std::string why;
    auto session = GnomeSession::start({.portal = false}, why);
    if (!session) {
        GTEST_SKIP() << "no GNOME session: " << why;
    }
    EXPECT_TRUE(session->movePointer(100, 100));
    EXPECT_TRUE(session->movePointer(1919, 1079));
    EXPECT_TRUE(session->type("ok\n"));
    EXPECT_FALSE(session->type("\t")) << "only printable ASCII and newlines";
}

TEST(GnomeSession, RemoteDesktopIsGrantedThroughTheDialog) {
    std::string why;
    auto session = GnomeSession::start({}, why);
    if (!session) {
        GTEST_SKIP() << "no GNOME session: " << why;
    }
    CastClient client("org.freedesktop.portal.RemoteDesktop");
    GVariantBuilder options;
    g_variant_builder_init(&options, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&options, "{sv}", "session_handle_token", g_variant_new_string("rd"));
    ASSERT_TRUE(client.send("CreateSession", "", &options));
    ASSERT_EQ(client.response(5), 0u);
    std::string handle = client.result("session_handle");
    g_variant_builder_init(&options, G_VARIANT_TYPE("a{sv}"));
    g_variant_builder_add(&options, "{sv}", "types", g_variant_new_uint32(3));
    ASSERT_TRUE(client.send("SelectDevices", handle, &options));
    ASSERT_EQ(client.response(5), 0u);
    ASSERT_TRUE(client.start(handle));
    bool answered = session->answerRemoteDesktop(15);
    auto code = client.response(answered ? 10 : 1);
    ASSERT_TRUE(answered) << "no Remote desktop dialog";
    ASSERT_EQ(code, 0u);
    EXPECT_EQ(client.result("devices"), "3") << "keyboard and pointer";
}

}  // namespace
}  // namespace quillo::capture
