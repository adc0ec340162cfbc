#include "Model/EditState.h"

#include <gtest/gtest.h>

#include <vector>

using namespace halvane;
using Change = EditState::Change;

namespace {

// A state whose host clock the test moves by hand, with a log of what observers heard.
struct Fixture {
    double clock = 100;
    EditState state{EditSettings{}, [this] { return clock; }};
    std::vector<Change> heard;

    Fixture() {
        state.onChange.push_back([this](Change c) { heard.push_back(c); });
    }
};

std::vector<Change> allInOrder() {
    std::vector<Change> all;
    for (std::size_t i = 0; i < EditState::changeCount; ++i) all.push_back(static_cast<Change>(i));
    return all;
}

ZoomSegment zoomAt(double start) {
    ZoomSegment z;
    z.start = start;
    z.end = start + 1;
    return z;
}

TEST(EditStateChanges, RouteEachFieldToItsCase) {
    EditSettings a;
    EditSettings b = a;
    b.padding = 0.2;
    b.trimEnd = 3.0;
    b.clickSound = ClickSoundKind::mxMaster;
    auto c = EditState::changes(a, b);
    EXPECT_EQ(c.size(), 3u);
    EXPECT_TRUE(c.contains(Change::appearance));
    EXPECT_TRUE(c.contains(Change::trim));
    EXPECT_TRUE(c.contains(Change::audio));

    EditSettings d = a;
    d.motionBlur = true;  // a camera option, not an appearance one
    d.clipSplits.push_back(2.0);
    c = EditState::changes(a, d);
    EXPECT_EQ(c.size(), 2u);
    EXPECT_TRUE(c.contains(Change::zooms));
    EXPECT_TRUE(c.contains(Change::clips));
}

TEST(EditStateChanges, CropComparesStandardizedRectangles) {
    EditSettings a;
    a.sourceCrop = Rect{0.25, 0.25, 0.5, 0.5};
    EditSettings b;
    b.sourceCrop = Rect{0.75, 0.75, -0.5, -0.5};
    EXPECT_TRUE(EditState::changes(a, b).empty());
    b.sourceCrop.reset();
    EXPECT_TRUE(EditState::changes(a, b).contains(Change::crop));
}

TEST(EditStateApply, ShowBackgroundAloneNotifiesAllFourteenInOrder) {
    Fixture f;
    EditSettings next = f.state.settings();
    next.showBackground = !next.showBackground;
    f.state.apply(next);
    EXPECT_EQ(f.heard, allInOrder());
}

TEST(EditStateApply, IdenticalValueNotifiesNothing) {
    Fixture f;
    f.state.apply(f.state.settings());
    EXPECT_TRUE(f.heard.empty());
}

TEST(EditStateApply, NotifiesInDeclarationOrderAndObserversSeeTheWholeNewValue) {
    Fixture f;
    EditSettings next = f.state.settings();
    next.audioVolume = 0.5;
    next.zooms.push_back(zoomAt(1));
    next.showCursor = false;
    std::vector<double> volumesSeen;
    f.state.onChange.push_back([&](Change) { volumesSeen.push_back(f.state.settings().audioVolume); });
    f.state.apply(next);
    EXPECT_EQ(f.heard, (std::vector<Change>{Change::cursor, Change::zooms, Change::audio}));
    EXPECT_EQ(volumesSeen, (std::vector<double>{0.5, 0.5, 0.5}));
}

TEST(EditStateEdit, ReportsOnlyTheGivenChangeEvenWhenNothingChanged) {
    Fixture f;
    f.state.edit("undo.noop", Change::masks, [](EditSettings&) {});
    EXPECT_EQ(f.heard, std::vector<Change>{Change::masks});
    EXPECT_TRUE(f.state.history().undoStack().empty());

    f.state.edit("undo.padding", Change::appearance, [](EditSettings& s) {
        s.padding = 0.3;
        s.audioMuted = true;
    });
    EXPECT_EQ(f.heard.back(), Change::appearance);
    EXPECT_EQ(f.heard.size(), 2u);
    EXPECT_EQ(f.state.history().undoName(), "undo.padding");
}

TEST(EditStateEdit, CoalescesOnlyWhenAskedAndWithinTheWindow) {
    Fixture f;
    auto pickColour = [&](const char* hex) {
        f.state.edit("undo.colour", Change::appearance, [&](EditSettings& s) { s.background = CanvasBackground::solid(hex); }, true);
    };
    pickColour("#111111");
    f.clock += 0.5;
    pickColour("#222222");
    EXPECT_EQ(f.state.history().undoStack().size(), 1u);
    f.clock += 1.0;
    pickColour("#333333");
    EXPECT_EQ(f.state.history().undoStack().size(), 2u);
}

TEST(EditStateGesture, TicksNotifyEachTimeAndCommitAsOneStepPerName) {
    Fixture f;
    f.state.editGesture("A", Change::appearance, [](EditSettings& s) { s.padding = 0.1; });
    f.state.editGesture("A", Change::appearance, [](EditSettings& s) { s.padding = 0.2; });
    EXPECT_TRUE(f.state.history().undoStack().empty());
    f.state.editGesture("B", Change::cursor, [](EditSettings& s) { s.cursorScale = 2; });
    EXPECT_EQ(f.state.history().undoStack().size(), 1u);
    f.state.commitGesture();
    f.state.commitGesture();  // safe when closed
    ASSERT_EQ(f.state.history().undoStack().size(), 2u);
    EXPECT_EQ(f.heard.size(), 3u);
    const auto& first = f.state.history().undoStack().front();
    EXPECT_EQ(first.name, "A");
    EXPECT_DOUBLE_EQ(first.before.padding, 0.07);
    EXPECT_DOUBLE_EQ(first.after.padding, 0.2);
    EXPECT_FALSE(f.state.activeGesture());
}

TEST(EditStateGesture, GestureEndingWhereItBeganLeavesNoStepAndKeepsRedo) {
    Fixture f;
    f.state.edit("undo.trim", Change::trim, [](EditSettings& s) { s.trimStart = 1; });
    ASSERT_TRUE(f.state.undo());
    f.state.editGesture("drag", Change::appearance, [](EditSettings& s) { s.padding = 0.5; });
    f.state.editGesture("drag", Change::appearance, [](EditSettings& s) { s.padding = 0.07; });
    f.state.commitGesture();
    EXPECT_TRUE(f.state.history().undoStack().empty());
    EXPECT_EQ(f.state.history().redoName(), "undo.trim");
}

TEST(EditStateGesture, GesturesAreNeverMergedIntoAnEarlierStep) {
    Fixture f;
    f.state.edit("drag", Change::appearance, [](EditSettings& s) { s.padding = 0.1; }, true);
    f.state.editGesture("drag", Change::appearance, [](EditSettings& s) { s.padding = 0.2; });
    f.state.commitGesture();
    EXPECT_EQ(f.state.history().undoStack().size(), 2u);
}

TEST(EditStateUndo, UndoDuringADragClosesItThenTakesItBack) {
    Fixture f;
    f.state.editGesture("drag", Change::zooms, [](EditSettings& s) { s.zooms.push_back(zoomAt(2)); });
    f.heard.clear();
    ASSERT_TRUE(f.state.undo());
    EXPECT_TRUE(f.state.settings().zooms.empty());
    EXPECT_EQ(f.heard, std::vector<Change>{Change::zooms});
    EXPECT_EQ(f.state.history().redoName(), "drag");
    ASSERT_TRUE(f.state.redo());
    EXPECT_EQ(f.state.settings().zooms.size(), 1u);
    EXPECT_FALSE(f.state.redo());
}

TEST(EditStateSharing, HistorySnapshotsShareListsUntilWritten) {
    EditSettings start;
    for (int i = 0; i < 100; ++i) start.zooms.push_back(zoomAt(i));
    EditState state(start);
    state.edit("undo.padding", Change::appearance, [](EditSettings& s) { s.padding = 0.3; });
    const auto& entry = state.history().undoStack().back();
    EXPECT_TRUE(entry.before.zooms.sharesStorageWith(state.settings().zooms));
    EXPECT_TRUE(entry.after.zooms.sharesStorageWith(state.settings().zooms));
    state.edit("undo.zoom", Change::zooms, [](EditSettings& s) { s.zooms.edit()[0].level = 2; });
    EXPECT_FALSE(state.history().undoStack().back().before.zooms.sharesStorageWith(state.settings().zooms));
    EXPECT_DOUBLE_EQ(state.history().undoStack().back().before.zooms[0].level, 1.75);
}

}  // namespace
