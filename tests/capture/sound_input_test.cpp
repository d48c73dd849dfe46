#include "capture/sound_input.h"

#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <signal.h>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "base/clock.h"
#include "support/movies.h"
#include "support/temp_folder.h"

namespace quillo::capture {
namespace {

namespace fs = std::filesystem;
using testing::commandOutput;

// A sound server of the tests' own: PipeWire with its PulseAudio service and session manager, a
// D-Bus session and a runtime folder of their own; a null sink as the default output (its
// monitor is "app sound") and a second one whose monitor is the default input (the microphone).
class SoundServer {
public:
    SoundServer() {
        const fs::path runtime = m_folder / "runtime";
        fs::create_directories(runtime);
        fs::permissions(runtime, fs::perms::owner_all, fs::perm_options::replace);
        m_environment = "XDG_RUNTIME_DIR='" + runtime.string() +
                        "' DBUS_SESSION_BUS_ADDRESS='unix:path=" + runtime.string() + "/bus' ";
        m_server = "unix:" + (runtime / "pulse" / "native").string();
        const std::string pids = (m_folder / "pids").string();
        std::string script =
            "command -v pipewire-pulse >/dev/null && command -v wireplumber >/dev/null && "
            "command -v pactl >/dev/null || exit 3; export " +
            m_environment +
            "; dbus-daemon --session --fork --print-pid=1 --address=$DBUS_SESSION_BUS_ADDRESS >> "
            "'" +
            pids + "' && (pipewire >/dev/null 2>&1 & echo $! >> '" + pids +
            "') && sleep 0.2 && (wireplumber >/dev/null 2>&1 & echo $! >> '" + pids +
            "') && (pipewire-pulse >/dev/null 2>&1 & echo $! >> '" + pids +
            "') && for i in $(seq 1 100); do pactl info >/dev/null 2>&1 && exit 0; sleep 0.1; "
            "done; exit 4";
        if (std::system(("sh -c \"" + escape(script) + "\"").c_str()) != 0) {
            m_failure = "PipeWire's PulseAudio service could not be started";
            return;
        }
        if (!pactl("load-module module-null-sink sink_name=quillo_out") ||
            !pactl("load-module module-null-sink sink_name=quillo_mic") ||
            !pactl("set-default-sink quillo_out") ||
            !pactl("set-default-source quillo_mic.monitor")) {
            m_failure = "the sound server refused the null sinks";
        }
    }
    ~SoundServer() {
        std::ifstream pids(m_folder / "pids");
        std::vector<pid_t> started;
        for (pid_t pid = 0; pids >> pid;) {
            started.push_back(pid);
        }
        // Last started first: the services before the bus.
        for (auto it = started.rbegin(); it != started.rend(); ++it) {
            ::kill(*it, SIGTERM);
        }
    }

    const std::string& failure() const { return m_failure; }
    const std::string& server() const { return m_server; }

    // Plays a loud 440 Hz tone into `sink` for a few seconds, in the background.
    void playTone(const std::string& sink) {
        const fs::path wav = m_folder / "tone.wav";
        if (!fs::exists(wav)) {
            testing::ffmpeg("-f lavfi -i 'aevalsrc=0.5*sin(2*PI*440*t):s=48000:d=6'", wav);
        }
        std::system(("sh -c \"export " + escape(m_environment) + "; paplay --device=" + sink +
                     " '" + wav.string() + "' >/dev/null 2>&1 & echo \\$! >> '" +
                     (m_folder / "pids").string() + "'\"")
                        .c_str());
    }

private:
    static std::string escape(const std::string& text) {
        std::string out;
        for (char c : text) {
            if (c == '"' || c == '$' || c == '\\' || c == '`') {
                out += '\\';
            }
            out += c;
        }
        return out;
    }
    bool pactl(const std::string& arguments) {
        return std::system(("sh -c \"export " + escape(m_environment) + "; pactl " + arguments +
                            " >/dev/null\"")
                               .c_str()) == 0;
    }

    testing::TempFolder m_folder;
    std::string m_environment;
    std::string m_server;
    std::string m_failure;
};

// What a SoundInput handed over: samples and the chunks' times.
struct Heard {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<float> samples;
    std::vector<double> times;

    SoundInput::Handler handler() {
        return [this](const float* data, size_t frames, double time) {
            std::lock_guard lock(mutex);
            samples.insert(samples.end(), data, data + frames * channels);
            times.push_back(time);
            changed.notify_all();
        };
    }
    // Waits until the last tenth of a second is loud, after at least `count` samples; false
    // when that never happens.
    bool waitForTone(size_t count) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(20), [&] {
            return samples.size() >= count && rmsOfLast(4800 * static_cast<size_t>(channels)) > 0.2;
        });
    }
    double rmsOfLast(size_t count) const {
        double sum = 0;
        for (size_t i = samples.size() - count; i < samples.size(); ++i) {
            sum += static_cast<double>(samples[i]) * samples[i];
        }
        return std::sqrt(sum / static_cast<double>(count));
    }

    int channels = 2;
};

TEST(SoundInput, WithoutAServerOpenFailsWithTheServersReason) {
    testing::ScopedEnvironment environment;
    environment.set("PULSE_SERVER", "unix:/nonexistent/quillo/pulse/native");
    Heard heard;
    auto input = SoundInput::open(SoundDevice::System, heard.handler());
    ASSERT_FALSE(input);
    EXPECT_FALSE(input.error().message.empty());
}

class SoundInputWithServer : public ::testing::Test {
protected:
    static void SetUpTestSuite() { s_server = new SoundServer(); }
    static void TearDownTestSuite() {
        delete s_server;
        s_server = nullptr;
    }
    void SetUp() override {
        if (!s_server->failure().empty()) {
            GTEST_SKIP() << s_server->failure();
        }
        environment.set("PULSE_SERVER", s_server->server());
    }

    static SoundServer* s_server;
    testing::ScopedEnvironment environment;
};
SoundServer* SoundInputWithServer::s_server = nullptr;

TEST_F(SoundInputWithServer, AppSoundComesFromTheDefaultOutputsMonitor) {
    Heard heard;
    const double opened = monotonicSeconds();
    auto input = SoundInput::open(SoundDevice::System, heard.handler());
    ASSERT_TRUE(input) << input.error().message;
    s_server->playTone("quillo_out");
    EXPECT_TRUE(heard.waitForTone(48000 * 2));
    input->reset();
    const double now = monotonicSeconds();
    // The chunks' times are steady-clock times of sound heard while the input was open.
    EXPECT_GT(heard.times.front(), opened - 0.5);
    EXPECT_LT(heard.times.back(), now);
}

TEST_F(SoundInputWithServer, TheMicrophoneIsTheDefaultInputInMono) {
    Heard heard;
    heard.channels = 1;
    auto input = SoundInput::open(SoundDevice::Microphone, heard.handler());
    ASSERT_TRUE(input) << input.error().message;
    s_server->playTone("quillo_mic");
    EXPECT_TRUE(heard.waitForTone(48000));
}

}  // namespace
}  // namespace quillo::capture
