#include "Model/KeystrokeTimeline.h"

#include <gtest/gtest.h>

using namespace halvane;

namespace {

KeyEvent key(double t, std::string label, int modifiers = 0) { return {t, std::move(label), modifiers}; }

}  // namespace

TEST(KeystrokeTimeline, NoKeysNoDisplay) {
    EXPECT_TRUE(KeystrokeTimeline::displays({}, KeystrokeMode::allKeys).empty());
    EXPECT_FALSE(KeystrokeTimeline::display(1, {}));
}

TEST(KeystrokeTimeline, TypingGrowsOneChain) {
    auto d = KeystrokeTimeline::displays({key(1.0, "h"), key(1.3, "i")}, KeystrokeMode::allKeys);
    ASSERT_EQ(d.size(), 2u);
    EXPECT_EQ(d[0], (KeystrokeTimeline::Display{"h", 1.0, 1.3, 1.0, 2.5}));
    EXPECT_EQ(d[1], (KeystrokeTimeline::Display{"hi", 1.3, 2.5, 1.0, 2.5}));
    auto shown = KeystrokeTimeline::display(1.35, d);
    ASSERT_TRUE(shown);
    EXPECT_EQ(shown->text, "hi");
    EXPECT_DOUBLE_EQ(shown->alpha, 1);
    // Nothing at exactly the chain's end.
    EXPECT_FALSE(KeystrokeTimeline::display(2.5, d));
    EXPECT_NEAR(KeystrokeTimeline::display(1.05, d)->alpha, 0.5, 1e-12);
}

TEST(KeystrokeTimeline, PausesStartNewTextAndChains) {
    auto oneChain = KeystrokeTimeline::displays({key(1, "a"), key(2, "b")}, KeystrokeMode::allKeys);
    ASSERT_EQ(oneChain.size(), 2u);
    EXPECT_EQ(oneChain[1].text, "b");
    EXPECT_DOUBLE_EQ(oneChain[0].end, 2);
    EXPECT_DOUBLE_EQ(oneChain[1].chainStart, 1);

    auto broken = KeystrokeTimeline::displays({key(1, "a"), key(2.5, "b")}, KeystrokeMode::allKeys);
    EXPECT_DOUBLE_EQ(broken[0].chainEnd, 2.2);
    EXPECT_DOUBLE_EQ(broken[1].chainStart, 2.5);
}

TEST(KeystrokeTimeline, ShowsLastEighteenCharactersAndBlanks) {
    std::vector<KeyEvent> keys;
    for (int i = 0; i < 20; ++i) keys.push_back(key(1 + i * 0.1, std::string(1, static_cast<char>('a' + i))));
    keys.push_back(key(3.05, "Space"));
    auto d = KeystrokeTimeline::displays(keys, KeystrokeMode::allKeys);
    EXPECT_EQ(d[19].text, "cdefghijklmnopqrst");
    EXPECT_EQ(d.back().text, "defghijklmnopqrst ");
}

TEST(KeystrokeTimeline, ShortcutsAndModes) {
    EXPECT_EQ(KeystrokeTimeline::chordText(key(0, "a", modifierCommand | modifierShift)), "⇧⌘A");
    EXPECT_EQ(KeystrokeTimeline::chordText(key(0, "Space", modifierCommand)), "⌘SPACE");
    EXPECT_EQ(KeystrokeTimeline::chordText(key(0, "x", 15)), "⌃⌥⇧⌘X");

    auto d = KeystrokeTimeline::displays({key(2.0, "c", modifierCommand), key(2.1, "A", modifierShift), key(2.2, "v", modifierCommand)},
                                         KeystrokeMode::commandKeys);
    ASSERT_EQ(d.size(), 2u);
    EXPECT_DOUBLE_EQ(d[0].end, 2.2);
    EXPECT_DOUBLE_EQ(d[0].chainStart, 2.0);
    EXPECT_DOUBLE_EQ(d[0].chainEnd, 3.4);
    EXPECT_EQ(d[1].text, "⌘V");

    // A shortcut breaks a typed run.
    auto run = KeystrokeTimeline::displays({key(1, "a"), key(1.2, "s", modifierControl), key(1.4, "b")}, KeystrokeMode::allKeys);
    EXPECT_EQ(run.back().text, "b");
}

TEST(KeystrokeTimeline, DeletingClearsTheOverlay) {
    auto d = KeystrokeTimeline::displays({key(1, "a"), key(1.5, "⌫")}, KeystrokeMode::allKeys);
    ASSERT_EQ(d.size(), 1u);
    EXPECT_DOUBLE_EQ(d[0].end, 1.5);
    EXPECT_DOUBLE_EQ(d[0].chainEnd, 1.5);
    EXPECT_FALSE(KeystrokeTimeline::display(1.6, d));
    EXPECT_NEAR(KeystrokeTimeline::display(1.35, d)->alpha, 0.5, 1e-12);

    // A delete long after the last key changes nothing.
    auto late = KeystrokeTimeline::displays({key(1, "a"), key(3, "⌫")}, KeystrokeMode::allKeys);
    ASSERT_EQ(late.size(), 1u);
    EXPECT_DOUBLE_EQ(late[0].end, 2.2);

    // Deleting removes a whole user-perceived character.
    auto emoji = KeystrokeTimeline::displays({key(1, "a"), key(1.1, "👍🏽"), key(1.2, "⌫")}, KeystrokeMode::allKeys);
    EXPECT_EQ(emoji.back().text, "a");
}
