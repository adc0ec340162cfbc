#include "Capture/CursorShapeSampler.h"
#include "Capture/FocusRecorder.h"
#include "Capture/KeyRecorder.h"
#include "Capture/MouseRecorder.h"
#include "Capture/PauseClock.h"
#include "support/FakePlatform.h"

#include <gtest/gtest.h>

using namespace halvane;
using namespace halvane::test;

namespace {

// A host clock the test moves by hand.
struct ManualClock {
    std::shared_ptr<double> now = std::make_shared<double>(100.0);
    std::shared_ptr<PauseClock> pauseClock() const {
        auto t = now;
        return std::make_shared<PauseClock>([t] { return *t; });
    }
};

}  // namespace

TEST(PauseClock, aPauseLeavesNoGapAndDropsWhatFallsInside) {
    ManualClock clock;
    auto pc = clock.pauseClock();
    EXPECT_EQ(pc->adjusted(101.0), 101.0);
    *clock.now = 102.0;
    pc->pause();
    pc->pause();  // a second pause changes nothing
    EXPECT_FALSE(pc->adjusted(102.5));
    *clock.now = 105.0;
    EXPECT_DOUBLE_EQ(pc->totalPaused(), 3.0);
    pc->resume();
    *clock.now = 106.0;
    pc->resume();
    // Just after the resume: the time before the pause plus the time since the resume.
    EXPECT_DOUBLE_EQ(*pc->adjusted(105.25), 102.25);
    EXPECT_DOUBLE_EQ(pc->totalPaused(), 3.0);
}

TEST(MouseRecorder, restingPointerWritesFourSamplesASecondAndMovingOneEveryTick) {
    ManualClock clock;
    FakeContentProvider content;
    content.setPointer(Point{50, 50});
    MouseRecorder recorder([] { return Rect(0, 0, 100, 100); }, clock.pauseClock(), {&content, nullptr, nullptr, {}});
    for (int i = 0; i < 1200; ++i) {  // ten seconds at 120 Hz
        recorder.samplePosition();
        *clock.now += 1.0 / 120;
    }
    content.setPointer(Point{60, 50});
    recorder.samplePosition();
    *clock.now += 1.0 / 120;
    content.setPointer(Point{70, 50});
    recorder.samplePosition();
    auto events = recorder.stop(100.0);
    ASSERT_GE(events.samples.size(), 38u);
    EXPECT_LE(events.samples.size(), 44u);
    EXPECT_DOUBLE_EQ(events.samples.back().x, 0.7);
    EXPECT_DOUBLE_EQ(events.samples[events.samples.size() - 2].x, 0.6);
}

TEST(MouseRecorder, pinsFarPointersAndMovesStreamsOntoTheMovieTimeline) {
    ManualClock clock;
    FakeContentProvider content;
    content.setPointer(Point{100 + 3 * 200, 50});
    MouseRecorder recorder([] { return Rect(100, 0, 200, 100); }, clock.pauseClock(), {&content, nullptr, nullptr, {}});
    recorder.samplePosition();
    recorder.recordButton({InputEvent::Kind::buttonDown, 0, {}, 0, 100.0});
    *clock.now = 101.0;
    content.setPointer(Point{150, 25});
    recorder.samplePosition();
    recorder.recordButton({InputEvent::Kind::buttonDown, 1, {}, 0, 101.0});
    recorder.recordButton({InputEvent::Kind::buttonUp, 1, {}, 0, 101.1});
    recorder.recordButton({InputEvent::Kind::keyDown, 0, "A", 0, 101.2});

    auto events = recorder.stop(100.5);
    ASSERT_EQ(events.samples.size(), 2u);
    // A sample from before the first frame stays, pinned to 0; a click from then is gone.
    EXPECT_EQ(events.samples[0].t, 0.0);
    EXPECT_EQ(events.samples[0].x, 1.5);
    EXPECT_DOUBLE_EQ(events.samples[1].t, 0.5);
    EXPECT_DOUBLE_EQ(events.samples[1].x, 0.25);
    EXPECT_DOUBLE_EQ(events.samples[1].y, 0.25);
    ASSERT_EQ(events.clicks.size(), 2u);
    EXPECT_EQ(events.clicks[0].button, 1);
    EXPECT_EQ(events.clicks[0].phase, ClickPhase::down);
    EXPECT_EQ(events.clicks[1].phase, ClickPhase::up);
    EXPECT_NEAR(events.clicks[1].t, 0.6, 1e-9);
}

TEST(KeyRecorder, dropsKeysOfThePauseAndFromBeforeTheFirstFrame) {
    ManualClock clock;
    auto pc = clock.pauseClock();
    FakeInputEventSource input;
    KeyRecorder keys(pc, input);
    ASSERT_TRUE(keys.start());
    input.send({InputEvent::Kind::keyDown, 0, "Q", 0, 99.0});
    input.send({InputEvent::Kind::keyDown, 0, "A", modifierShift, 100.5});
    *clock.now = 101;
    pc->pause();
    input.send({InputEvent::Kind::keyDown, 0, "B", 0, 101.5});
    *clock.now = 103;
    pc->resume();
    input.send({InputEvent::Kind::keyDown, 0, "C", modifierControl | modifierCommand, 103.5});
    input.send({InputEvent::Kind::buttonDown, 0, {}, 0, 103.6});
    auto events = keys.stop(100.0);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0], (KeyEvent{0.5, "A", modifierShift}));
    EXPECT_EQ(events[1], (KeyEvent{1.5, "C", modifierControl | modifierCommand}));
    FakeInputEventSource deaf;
    deaf.available = false;
    KeyRecorder none(pc, deaf);
    EXPECT_FALSE(none.start());
}

TEST(CursorShapeSampler, namesDecideAndUnknownPicturesAreArrows) {
    FakeCursorImageSource source;
    auto picture = [](uint32_t argb) {
        CursorImage image;
        image.width = 16;
        image.height = 16;
        image.argb.assign(256, argb);
        return image;
    };
    CursorShapeSampler::Reference hand{CursorShape::pointingHand, CursorShapeSampler::render(picture(0xff202020))};
    CursorShapeSampler sampler(source, {hand});
    EXPECT_EQ(sampler.poll(), std::nullopt);  // no cursor at all

    CursorImage text = picture(0xffffffff);
    text.name = "xterm";
    source.set(text);
    EXPECT_EQ(sampler.poll(), CursorShape::iBeam);
    EXPECT_EQ(sampler.poll(), std::nullopt);  // unchanged

    source.set(picture(0xff222222));  // near the hand reference, nameless
    EXPECT_EQ(sampler.poll(), CursorShape::pointingHand);
    source.set(picture(0xffff00ff));  // like no reference
    EXPECT_EQ(sampler.poll(), CursorShape::arrow);
    EXPECT_EQ(CursorShapeSampler::shapeForName("sb_h_double_arrow"), CursorShape::resizeLeftRight);
    EXPECT_EQ(CursorShapeSampler::shapeForName("watch"), std::nullopt);
}

TEST(FocusRecorder, displaysFollowThePointerAndWindowsTheStackingOrder) {
    ManualClock clock;
    FakeContentProvider content;
    ShareableContent c;
    c.displays = {{1, "left", Rect(0, 0, 100, 100), 1}, {2, "right", Rect(100, 0, 100, 100), 1}};
    c.windows = {{30, "front", "", 0, Rect(10, 10, 50, 50)}, {20, "back", "", 0, Rect(0, 0, 80, 80)}};
    content.setContent(c);

    FocusRecorder displays(FocusRecorder::Kind::displays, {1, 2}, clock.pauseClock(), content);
    content.setPointer(Point{150, 50});
    displays.poll();
    *clock.now += 0.1;
    content.setPointer(Point{500, 50});  // outside every display: the focus stays
    displays.poll();
    *clock.now += 0.1;
    content.setPointer(Point{50, 50});
    displays.poll();
    auto report = displays.stop(100.0);
    ASSERT_EQ(report.samples.size(), 2u);
    EXPECT_EQ(report.samples[0].id, 2u);
    EXPECT_EQ(report.samples[1].id, 1u);
    EXPECT_NEAR(report.samples[1].t, 0.2, 1e-9);

    FocusRecorder windows(FocusRecorder::Kind::windows, {20, 30}, clock.pauseClock(), content);
    windows.poll();
    c.windows = {{20, "back", "", 0, Rect(5, 0, 80, 80)}, {30, "front", "", 0, Rect(10, 10, 50, 50)}};
    content.setContent(c);
    *clock.now += 0.1;
    windows.poll();
    auto w = windows.stop(100.0);
    ASSERT_EQ(w.samples.size(), 2u);
    EXPECT_EQ(w.samples[0].id, 30u);
    EXPECT_EQ(w.samples[1].id, 20u);
    ASSERT_EQ(w.frames[20].size(), 2u);
    EXPECT_EQ(w.frames[20][1].frame, Rect(5, 0, 80, 80));
    EXPECT_EQ(w.frames[30].size(), 1u);
}
