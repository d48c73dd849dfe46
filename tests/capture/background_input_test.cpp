// Background input's sequences over recording devices: what reaches the agent's pointer and
// keyboard, in what order.

#include "capture/background_input.h"

#include <gtest/gtest.h>

namespace quillo::capture {
namespace {

// Writes each event as a line: "move 10,20", "button 1 down", "key ff0d up", "char 233".
class RecordingDevices : public AgentDevices {
public:
    explicit RecordingDevices(std::vector<std::string>& log) : m_log(log) {}
    Result<void> move(Point at) override {
        m_log.push_back("move " + std::to_string(static_cast<int>(at.x)) + "," +
                        std::to_string(static_cast<int>(at.y)));
        return {};
    }
    Result<void> button(int button, bool down) override {
        m_log.push_back("button " + std::to_string(button) + (down ? " down" : " up"));
        return {};
    }
    Result<void> key(uint32_t keysym, bool down) override {
        char hex[16];
        std::snprintf(hex, sizeof hex, "%x", keysym);
        m_log.push_back(std::string("key ") + hex + (down ? " down" : " up"));
        return {};
    }
    Result<void> typeCharacter(char32_t character) override {
        if (character == U'☃') {
            return AppError("No key types ☃.");
        }
        m_log.push_back("char " + std::to_string(static_cast<uint32_t>(character)));
        return {};
    }
    Result<void> focus(uint32_t) override { return {}; }
    std::optional<Point> position() override { return std::nullopt; }
    void flush() override {}

private:
    std::vector<std::string>& m_log;
};

class BackgroundInputTest : public ::testing::Test {
protected:
    std::vector<std::string> run(const std::function<void(BackgroundInput&)>& sequence) {
        std::vector<std::string> log;
        BackgroundInput input([&log]() -> Result<std::unique_ptr<AgentDevices>> {
            return std::unique_ptr<AgentDevices>(new RecordingDevices(log));
        });
        sequence(input);
        auto flushed = input.flush();
        EXPECT_TRUE(flushed) << flushed.error().message;
        return log;
    }
};

TEST(DecodeUTF8, GivesCodePointsAndReplacesBrokenBytes) {
    EXPECT_EQ(decodeUTF8("aé→😀"), (std::u32string{U'a', U'é', U'→', U'😀'}));
    EXPECT_EQ(decodeUTF8("a\xff"
                         "b\xe2\x86"),
              (std::u32string{U'a', 0xfffd, U'b', 0xfffd, 0xfffd}));
}

TEST_F(BackgroundInputTest, ACarriageReturnWithItsLineFeedIsOneReturn) {
    auto log = run([](BackgroundInput& input) { input.type("a\r\nb\n\tß", 0); });
    EXPECT_EQ(log, (std::vector<std::string>{"char 97", "key ff0d down", "key ff0d up", "char 98",
                                             "key ff0d down", "key ff0d up", "key ff09 down",
                                             "key ff09 up", "char 223"}));
}

TEST_F(BackgroundInputTest, ScrollTurnsPixelsIntoWheelStepsAndCarriesTheRest) {
    auto log = run([](BackgroundInput& input) {
        input.scroll({5, 5}, 0, 30);    // not yet a step
        input.scroll({5, 5}, 0, 30);    // 60 px: one step down, 10 carried
        input.scroll({5, 5}, -110, 0);  // two steps left
    });
    EXPECT_EQ(log, (std::vector<std::string>{"move 5,5", "move 5,5", "button 5 down", "button 5 up",
                                             "move 5,5", "button 6 down", "button 6 up",
                                             "button 6 down", "button 6 up"}));
}

TEST_F(BackgroundInputTest, ModifiersAreHeldAroundADoubleClick) {
    auto log = run([](BackgroundInput& input) { input.click({40, 30}, 1, 2, {0xffe3}); });
    EXPECT_EQ(log, (std::vector<std::string>{"move 40,30", "key ffe3 down", "button 1 down",
                                             "button 1 up", "button 1 down", "button 1 up",
                                             "key ffe3 up"}));
}

TEST_F(BackgroundInputTest, AGlideEndsWhereItWasSentAndTheDragReleasesThere) {
    auto log = run([](BackgroundInput& input) {
        input.move({0, 0});
        input.move({100, 50}, 0.1);
        input.drag({100, 50}, {200, 50}, 4);
    });
    ASSERT_GE(log.size(), 10u);
    auto glideEnd = std::find(log.begin(), log.end(), "move 100,50");
    ASSERT_NE(glideEnd, log.end());
    EXPECT_GT(glideEnd - log.begin(), 2);  // moves in between: a glide, not a jump
    EXPECT_EQ(log.back(), "button 1 up");
    EXPECT_EQ(log[log.size() - 2], "move 200,50");
}

TEST_F(BackgroundInputTest, AFailureReachesTheNextFlushAndStopsItsSequenceOnly) {
    std::vector<std::string> log;
    BackgroundInput input([&log]() -> Result<std::unique_ptr<AgentDevices>> {
        return std::unique_ptr<AgentDevices>(new RecordingDevices(log));
    });
    input.type("a☃b", 0);
    input.type("c", 0);
    auto flushed = input.flush();
    ASSERT_FALSE(flushed);
    EXPECT_EQ(flushed.error().message, "No key types ☃.");
    EXPECT_EQ(log, (std::vector<std::string>{"char 97", "char 99"}));
    EXPECT_TRUE(input.flush());

    BackgroundInput broken([]() -> Result<std::unique_ptr<AgentDevices>> {
        return AppError("No display is available.");
    });
    broken.move({1, 1});
    EXPECT_FALSE(broken.flush());
    EXPECT_FALSE(broken.position());
}

}  // namespace
}  // namespace quillo::capture
