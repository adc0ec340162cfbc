#include "Model/RecordedEvents.h"
#include "Platform/KeyLabel.h"
#include "Platform/X11ContentProvider.h"
#include "Platform/X11CursorImageSource.h"
#include "Platform/X11InputEventSource.h"
#include "Platform/X11ScreenGrabber.h"
#include "Support/HalvaneError.h"
#include "support/TestWindow.h"
#include "support/XvfbFixture.h"

#include <xkbcommon/xkbcommon-keysyms.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

using namespace halvane;
using namespace halvane::test;

namespace {

class X11PlatformTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { xvfb = new XvfbFixture(); }
    static void TearDownTestSuite() {
        delete xvfb;
        xvfb = nullptr;
    }
    std::shared_ptr<X11Connection> connect() { return std::make_shared<X11Connection>(xvfb->displayName()); }

    static XvfbFixture* xvfb;
};
XvfbFixture* X11PlatformTest::xvfb = nullptr;

// Collects input events from the reader thread.
struct EventLog {
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<InputEvent> events;

    void add(const InputEvent& e) {
        std::lock_guard lock(mutex);
        events.push_back(e);
        changed.notify_all();
    }
    bool waitFor(size_t count) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(10), [&] { return events.size() >= count; });
    }
};

}  // namespace

TEST(KeyLabel, namedKeysLettersAndKeysWithoutText) {
    EXPECT_EQ(keyLabel(XKB_KEY_Return), "⏎");
    EXPECT_EQ(keyLabel(XKB_KEY_space), "Space");
    EXPECT_EQ(keyLabel(XKB_KEY_F12), "F12");
    EXPECT_EQ(keyLabel(XKB_KEY_a), "A");
    EXPECT_EQ(keyLabel(XKB_KEY_adiaeresis), "Ä");
    EXPECT_EQ(keyLabel(XKB_KEY_1), "1");
    EXPECT_EQ(keyLabel(XKB_KEY_F13), std::nullopt);
    EXPECT_EQ(keyLabel(XKB_KEY_Shift_L), std::nullopt);
}

TEST_F(X11PlatformTest, contentListsTheDisplayAndWindowsFrontToBack) {
    TestWindow back(xvfb->displayName(), 100, 100, 300, 200, 0xff0000, "Back");
    TestWindow front(xvfb->displayName(), 150, 150, 300, 200, 0x00ff00, "Front");
    X11ContentProvider provider(connect());
    auto content = provider.current();
    ASSERT_EQ(content.displays.size(), 1u);
    EXPECT_EQ(content.displays[0].frame, Rect(0, 0, 1920, 1080));
    ASSERT_GE(content.windows.size(), 2u);
    EXPECT_EQ(content.windows[0].id, front.id());
    EXPECT_EQ(content.windows[0].title, "Front");
    EXPECT_EQ(content.windows[0].frame, Rect(150, 150, 300, 200));
    EXPECT_EQ(content.windows[1].id, back.id());

    xvfb->xdotool("mousemove 321 234");
    auto pointer = provider.pointerLocation();
    ASSERT_TRUE(pointer);
    EXPECT_EQ(*pointer, (Point{321, 234}));
}

TEST_F(X11PlatformTest, grabsAnAreaAndACoveredWindow) {
    TestWindow red(xvfb->displayName(), 200, 200, 200, 100, 0xff0000, "Red");
    auto connection = connect();
    X11ScreenGrabber area(connection, QRect(250, 220, 64, 32));
    QImage picture = area.grab();
    ASSERT_EQ(picture.size(), QSize(64, 32));
    EXPECT_EQ(picture.pixel(10, 10) & 0xffffffu, 0xff0000u);

    // Covered by a blue window, the red one still grabs red through its Composite pixmap.
    X11ScreenGrabber window(connection, red.id(), QSize(200, 100));
    TestWindow blue(xvfb->displayName(), 150, 150, 400, 300, 0x0000ff, "Blue");
    QImage own = window.grab();
    EXPECT_EQ(own.pixel(100, 50) & 0xffffffu, 0xff0000u);
    EXPECT_EQ(area.grab().pixel(10, 10) & 0xffffffu, 0x0000ffu);
}

TEST_F(X11PlatformTest, inputSourceHearsButtonsAndKeysWithModifiers) {
    X11InputEventSource source(xvfb->displayName());
    EventLog log;
    ASSERT_TRUE(source.start([&](const InputEvent& e) { log.add(e); }));
    xvfb->xdotool("click 3");
    ASSERT_TRUE(log.waitFor(2));
    xvfb->xdotool("key shift+a");
    xvfb->xdotool("key Return");
    xvfb->xdotool("key F13");
    xvfb->xdotool("click 1");
    ASSERT_TRUE(log.waitFor(6));
    source.stop();

    EXPECT_EQ(log.events[0].kind, InputEvent::Kind::buttonDown);
    EXPECT_EQ(log.events[0].button, 1);
    EXPECT_EQ(log.events[1].kind, InputEvent::Kind::buttonUp);
    EXPECT_EQ(log.events[2].kind, InputEvent::Kind::keyDown);
    EXPECT_EQ(log.events[2].keyLabel, "A");
    EXPECT_EQ(log.events[2].modifiers, modifierShift);
    EXPECT_EQ(log.events[3].keyLabel, "⏎");
    EXPECT_EQ(log.events[3].modifiers, 0);
    // F13 has no label, so the left click follows directly.
    EXPECT_EQ(log.events[4].kind, InputEvent::Kind::buttonDown);
    EXPECT_EQ(log.events[4].button, 0);
    EXPECT_GT(log.events[4].hostTime, log.events[0].hostTime);
}

TEST_F(X11PlatformTest, cursorImageHasPixels) {
    X11CursorImageSource cursor(connect());
    auto image = cursor.current();
    ASSERT_TRUE(image);
    EXPECT_GT(image->width, 0);
    EXPECT_EQ(image->argb.size(), static_cast<size_t>(image->width * image->height));
}

TEST_F(X11PlatformTest, aDeadServerFailsTheGrabWithAClearError) {
    XvfbFixture doomed;
    auto connection = std::make_shared<X11Connection>(doomed.displayName());
    X11ScreenGrabber grabber(connection, QRect(0, 0, 64, 64));
    EXPECT_NO_THROW(grabber.grab());
    doomed.kill();
    try {
        grabber.grab();
        FAIL() << "a grab of a dead server succeeded";
    } catch (const HalvaneError& e) {
        EXPECT_NE(std::string(e.what()).find(doomed.displayName()), std::string::npos);
    }
}
