#include "Model/Transcript.h"

#include <gtest/gtest.h>

using namespace halvane;

namespace {

TranscriptWord word(std::string text, double s, double e) { return {std::move(text), s, e}; }

std::vector<TranscriptCue> chunk(const std::vector<TranscriptWord>& words, std::optional<std::string> locale = "en_US") {
    return Transcript::chunk(words, 42, 0.8, 5, locale);
}

}  // namespace

TEST(Transcript, CueLookupIncludesBothEnds) {
    Transcript t;
    EXPECT_EQ(t.cue(1), nullptr);
    t.cues = chunk({word("one", 1, 2)});
    auto more = chunk({word("two", 3, 4)});
    t.cues.push_back(more[0]);
    ASSERT_NE(t.cue(2), nullptr);
    EXPECT_EQ(t.cue(2)->text, "one");
    EXPECT_EQ(t.cue(1)->text, "one");
    EXPECT_EQ(t.cue(2.5), nullptr);
    EXPECT_EQ(t.cue(0.5), nullptr);
    EXPECT_EQ(t.cue(3.5)->text, "two");
}

TEST(Transcript, ChunkBreaksAtCharacterLimit) {
    const std::string w22(22, 'a');
    EXPECT_EQ(chunk({word(w22, 0, 1), word(w22, 1, 2)}).size(), 2u);
    auto together = chunk({word(std::string(20, 'a'), 0, 1), word(std::string(21, 'b'), 1, 2)});
    ASSERT_EQ(together.size(), 1u);
    EXPECT_EQ(together[0].text, std::string(20, 'a') + " " + std::string(21, 'b'));
    // Characters are user-perceived characters, not bytes.
    std::string accents;
    for (int i = 0; i < 21; ++i) accents += "é";
    EXPECT_EQ(chunk({word(std::string(20, 'a'), 0, 1), word(accents, 1, 2)}).size(), 1u);
}

TEST(Transcript, ChunkBreaksAtGapAndDuration) {
    EXPECT_EQ(chunk({word("a", 0, 1), word("b", 1.8, 2)}).size(), 1u);
    EXPECT_EQ(chunk({word("a", 0, 1), word("b", 1.81, 2)}).size(), 2u);
    EXPECT_EQ(chunk({word("a", 0, 1), word("b", 1.2, 5.01)}).size(), 2u);
    auto shortCue = chunk({word("a", 3, 3)});
    ASSERT_EQ(shortCue.size(), 1u);
    EXPECT_DOUBLE_EQ(shortCue[0].end, 3.2);
}

TEST(Transcript, PunctuationAttaches) {
    auto w = Transcript::attachingPunctuation({word("Hello", 0, 1), word(",", 1, 1.1), word("(", 1.2, 1.3), word("world", 1.3, 2)});
    ASSERT_EQ(w.size(), 2u);
    EXPECT_EQ(w[0].text, "Hello,");
    EXPECT_EQ(w[1].text, "(world");
    EXPECT_DOUBLE_EQ(w[1].start, 1.3);

    auto leading = Transcript::attachingPunctuation({word(".", 0, 0.1), word("Next", 0.2, 1)});
    ASSERT_EQ(leading.size(), 1u);
    EXPECT_EQ(leading[0].text, ".Next");
    auto trailing = Transcript::attachingPunctuation({word("end", 0, 1), word("「", 1, 1.1)});
    EXPECT_EQ(trailing[0].text, "end「");
}

TEST(Transcript, JapaneseJoinsWithoutBlanks) {
    EXPECT_EQ(Transcript::wordSeparator("ja_JP"), "");
    EXPECT_EQ(Transcript::wordSeparator("zh-Hans"), "");
    EXPECT_EQ(Transcript::wordSeparator("yue"), "");
    EXPECT_EQ(Transcript::wordSeparator("en_US"), " ");
    EXPECT_EQ(Transcript::wordSeparator(std::nullopt), " ");
    auto cues = chunk({word("こんにちは", 0, 1), word("世界", 1, 2)}, "ja_JP");
    EXPECT_EQ(cues[0].text, "こんにちは世界");
}

TEST(Transcript, FillerRanges) {
    Transcript t;
    t.cues = chunk({word("Um,", 0.02, 0.3), word("umbrella", 1, 1.5), word("uh", 2, 2.2), word("hm.", 2.4, 2.5)});
    EXPECT_TRUE(Transcript::isFillerWord("Um,"));
    EXPECT_FALSE(Transcript::isFillerWord("umbrella"));
    auto r = t.fillerRanges(0.06);
    ASSERT_EQ(r.size(), 2u);
    EXPECT_DOUBLE_EQ(r[0].lower, 0);
    EXPECT_DOUBLE_EQ(r[1].lower, 1.94);
    // "uh" and "hm." 0.2 s apart: 0.08 s after padding, one range.
    EXPECT_DOUBLE_EQ(r[1].upper, 2.56);
}
