// The accessible elements reader against a GTK form ("Name" field, "Save" button, a label) in a
// private Xvfb with the accessibility bus: listing, filtering, pressing and focusing.

#include "capture/accessible_elements.h"

#include <chrono>
#include <csignal>
#include <sstream>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "capture/caret_locator.h"
#include "support/child_process.h"
#include "support/eventually.h"
#include "support/movies.h"
#include "support/x_session.h"

namespace quillo::capture {
namespace {

using testing::XSession;

using testing::eventually;

Point centreOf(const Rect& rect) { return {rect.x + rect.width / 2, rect.y + rect.height / 2}; }

bool inside(const Rect& inner, const Rect& outer) {
    return inner.x >= outer.x && inner.y >= outer.y &&
           inner.x + inner.width <= outer.x + outer.width &&
           inner.y + inner.height <= outer.y + outer.height;
}

const AccessibleElement* withLabel(const std::vector<AccessibleElement>& elements,
                                   const std::string& label) {
    for (const auto& element : elements) {
        if (element.label == label) {
            return &element;
        }
    }
    return nullptr;
}

constexpr Rect kScreen{0, 0, 1280, 800};

class FormTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string why;
        x = XSession::start({.accessibility = true, .windowManager = true}, why);
        if (!x) {
            GTEST_SKIP() << "no X server: " << why;
        }
        form = x->spawn({QUILLO_GTK_ENTRY, "Elements form"});
        auto id = x->waitForWindow(form);
        ASSERT_TRUE(id);
        x->xdotool("windowactivate --sync " + std::to_string(*id));
        window = x->clientArea(*id);
        // The form is listed once its app has joined the bus.
        ASSERT_TRUE(eventually([&] {
            elements = reader->list(form, kScreen, 100, "");
            return withLabel(elements, "Name") && withLabel(elements, "Save");
        }));
    }

    // Whether the form's label now reads `text`.
    bool labelShows(const std::string& text) {
        return withLabel(reader->list(form, window, 100, ""), text) != nullptr;
    }

    std::unique_ptr<XSession> x;
    std::unique_ptr<AccessibleElements> reader = makeAccessibleElements();
    pid_t form = -1;
    Rect window;
    std::vector<AccessibleElement> elements;
};

// --- list()

TEST_F(FormTest, ListsTheFieldAndTheButtonInReadingOrder) {
    const AccessibleElement* name = withLabel(elements, "Name");
    const AccessibleElement* save = withLabel(elements, "Save");
    EXPECT_NE(name->role.find("text"), std::string::npos) << name->role;
    EXPECT_EQ(save->role, "push button");
    EXPECT_TRUE(inside(name->frame, window));
    EXPECT_TRUE(inside(save->frame, window));
    EXPECT_GT(save->frame.y, name->frame.y);
    EXPECT_LT(name - elements.data(), save - elements.data()) << "the field is above the button";
    for (size_t i = 1; i < elements.size(); ++i) {
        EXPECT_LE(elements[i - 1].frame.y, elements[i].frame.y);
    }
    for (const auto& element : elements) {
        EXPECT_FALSE(element.role.empty());
    }
}

TEST_F(FormTest, LimitsFiltersAndClipsTheList) {
    ASSERT_GE(elements.size(), 2u);
    auto first = reader->list(form, kScreen, 1, "");
    ASSERT_EQ(first.size(), 1u);
    EXPECT_EQ(first[0].label, elements[0].label) << "the first in reading order";
    EXPECT_TRUE(reader->list(form, kScreen, 0, "").empty());

    auto saved = reader->list(form, kScreen, 100, "sAVe");
    ASSERT_EQ(saved.size(), 1u);
    EXPECT_EQ(saved[0].label, "Save");
    auto buttons = reader->list(form, kScreen, 100, "push button");
    ASSERT_EQ(buttons.size(), 1u) << "the role matches too";
    EXPECT_EQ(buttons[0].label, "Save");
    EXPECT_TRUE(reader->list(form, kScreen, 100, "no such thing").empty());

    // An area that holds only the button's lower half.
    const Rect button = withLabel(elements, "Save")->frame;
    Rect lowerHalf{button.x, button.y + button.height / 2, button.width, button.height / 2};
    auto clipped = reader->list(form, lowerHalf, 100, "");
    EXPECT_TRUE(withLabel(clipped, "Save"));
    EXPECT_FALSE(withLabel(clipped, "Name"));
    EXPECT_TRUE(reader->list(form, {window.x + window.width + 50, 0, 10, 10}, 100, "").empty());
    EXPECT_TRUE(reader->list(getpid(), kScreen, 100, "").empty()) << "not on the bus";
}

TEST_F(FormTest, CutsLongLabelsToEightyCharacters) {
    const Rect entry = withLabel(elements, "Name")->frame;
    ASSERT_EQ(reader->activate(form, centreOf(entry)), "focused");
    std::string longLine(100, 'w');
    x->xdotool("type --delay 5 '" + longLine + "'");
    ASSERT_TRUE(eventually([&] {
        auto entries = reader->list(form, entry, 10, "Name");
        return !entries.empty() && entries[0].label == "Name";
    })) << "the name wins over the text";
    ASSERT_EQ(reader->activate(form, centreOf(withLabel(elements, "Save")->frame)), "pressed");
    EXPECT_TRUE(eventually([&] { return labelShows(std::string(80, 'w')); }))
        << "the label's text, cut to 80 characters";
}

// --- activate()

TEST_F(FormTest, PressesTheButtonAndFocusesTheField) {
    const Rect entry = withLabel(elements, "Name")->frame;
    const Rect button = withLabel(elements, "Save")->frame;
    auto caret = makeCaretLocator();

    x->xdotool("type --delay 20 hello");
    EXPECT_EQ(reader->activate(form, centreOf(button)), "pressed");
    EXPECT_TRUE(eventually([&] { return labelShows("hello"); }));

    // The keyboard focus leaves the field, so no caret; activating the field brings it back.
    x->xdotool("key Tab");
    ASSERT_TRUE(eventually([&] { return !caret->locate(form); }));
    EXPECT_EQ(reader->activate(form, {entry.x + 3, entry.y + entry.height / 2}), "focused");
    ASSERT_TRUE(eventually([&] { return caret->locate(form).has_value(); }));
    // Focusing a GTK field selects its text: typing after End appends.
    x->xdotool("key End");
    x->xdotool("type --delay 20 ' world'");
    EXPECT_EQ(reader->activate(form, centreOf(button)), "pressed");
    EXPECT_TRUE(eventually([&] { return labelShows("hello world"); }));
}

TEST_F(FormTest, ActivatesNothingAwayFromControls) {
    EXPECT_EQ(reader->activate(form, {window.x + window.width + 100, 700}), std::nullopt)
        << "outside the window";
    EXPECT_EQ(reader->activate(form, {window.x + 3, window.y + 3}), std::nullopt)
        << "the window's margin";
    EXPECT_EQ(reader->activate(form, {window.x + 20, window.y + window.height - 6}), std::nullopt)
        << "below the controls";
    EXPECT_EQ(reader->activate(getpid(), centreOf(window)), std::nullopt) << "not on the bus";
}

// --- without the bus

TEST(AccessibleElementsWithoutBus, FindsNothing) {
    std::string why;
    auto x = XSession::start({}, why);
    if (!x) {
        GTEST_SKIP() << "no X server: " << why;
    }
    // libatspi connects once per process: the bus-less case runs in a child of its own.
    pid_t child = testing::forkChild([] {
        auto reader = makeAccessibleElements();
        if (!reader->list(1, kScreen, 10, "").empty() || reader->activate(1, {10, 10})) {
            std::raise(SIGUSR1);
        }
    });
    EXPECT_EQ(testing::waitForSignal(child), 0);
}

}  // namespace
}  // namespace quillo::capture
