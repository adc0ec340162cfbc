#include "Model/EditHistory.h"

#include <gtest/gtest.h>

using namespace halvane;

namespace {

using History = EditHistory<int>;

TEST(EditHistory, EqualValuesRecordNothingAndKeepRedo) {
    History h;
    h.record("a", 1, 2, false, 0);
    h.undo();
    h.record("b", 5, 5, false, 1);
    EXPECT_TRUE(h.undoStack().empty());
    EXPECT_EQ(h.redoName(), "a");
}

TEST(EditHistory, CoalescingMergesRunsWithGapsBelowTheWindow) {
    History h;
    h.record("slide", 1, 2, true, 10.0);
    h.record("slide", 2, 3, true, 10.9);
    h.record("slide", 3, 4, true, 11.8);  // 1.8 s after the first, but each gap is 0.9 s
    ASSERT_EQ(h.undoStack().size(), 1u);
    EXPECT_EQ(h.undoStack().back().before, 1);
    EXPECT_EQ(h.undoStack().back().after, 4);
    EXPECT_DOUBLE_EQ(h.undoStack().back().recordedAt, 11.8);
}

TEST(EditHistory, CoalescingNeedsSameNameAndAGapStrictlyBelowTheWindow) {
    History h;
    h.record("slide", 1, 2, true, 10.0);
    h.record("slide", 2, 3, true, 11.0);  // exactly one window apart
    EXPECT_EQ(h.undoStack().size(), 2u);
    h.record("other", 3, 4, true, 11.1);
    EXPECT_EQ(h.undoStack().size(), 3u);
    h.record("other", 4, 5, false, 11.2);  // not asked to coalesce
    EXPECT_EQ(h.undoStack().size(), 4u);
}

TEST(EditHistory, ARunThatCancelsItselfOutVanishes) {
    History h;
    h.record("first", 0, 1, false, 0);
    h.record("colour", 1, 2, true, 5.0);
    h.record("colour", 2, 1, true, 5.5);
    ASSERT_EQ(h.undoStack().size(), 1u);
    EXPECT_EQ(h.undoName(), "first");
}

TEST(EditHistory, RecordAfterUndoEmptiesRedoEvenWhenItMerges) {
    History h;
    h.record("a", 1, 2, true, 0);
    h.record("b", 2, 3, true, 0.1);
    h.undo();
    ASSERT_EQ(h.redoStack().size(), 1u);
    h.record("a", 2, 5, true, 0.2);  // merges into "a"
    EXPECT_TRUE(h.redoStack().empty());
    ASSERT_EQ(h.undoStack().size(), 1u);
    EXPECT_EQ(h.undoStack().back().after, 5);
}

TEST(EditHistory, The201stEntryPushesOutTheFirst) {
    History h;
    for (int i = 0; i < 201; ++i) h.record("step " + std::to_string(i), i, i + 1, false, i);
    ASSERT_EQ(h.undoStack().size(), 200u);
    EXPECT_EQ(h.undoStack().front().name, "step 1");
    EXPECT_EQ(h.undoStack().back().name, "step 200");
}

TEST(EditHistory, UndoAndRedoMoveEntriesBetweenStacks) {
    History h;
    EXPECT_FALSE(h.undo());
    EXPECT_FALSE(h.redo());
    EXPECT_FALSE(h.undoName());
    h.record("a", 1, 2, false, 0);
    h.record("b", 2, 3, false, 5);
    auto undone = h.undo();
    ASSERT_TRUE(undone);
    EXPECT_EQ(undone->before, 2);
    EXPECT_EQ(h.undoName(), "a");
    EXPECT_EQ(h.redoName(), "b");
    auto redone = h.redo();
    ASSERT_TRUE(redone);
    EXPECT_EQ(redone->after, 3);
    EXPECT_TRUE(h.redoStack().empty());
    EXPECT_EQ(h.undoStack().size(), 2u);
}

}  // namespace
