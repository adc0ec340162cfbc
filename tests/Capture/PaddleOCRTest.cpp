#include "Capture/TextReading/PaddleOCR.h"

#include <gtest/gtest.h>

#include <set>

#include <cmath>

using namespace halvane;

namespace {

using Extent = PaddleOCR::Extent;

// A map of binary16 values with rectangles of a given probability painted on it.
struct Map {
    int width, height;
    std::vector<std::uint16_t> values;
    Map(int w, int h) : width(w), height(h), values(static_cast<size_t>(w) * h, 0) {}
    void paint(int x, int y, int w, int h, float p) {
        for (int yy = y; yy < y + h; ++yy)
            for (int xx = x; xx < x + w; ++xx) values[static_cast<size_t>(yy) * width + xx] = PaddleOCR::halfFromFloat(p);
    }
    std::vector<PaddleOCR::Box> boxes(Size source) const { return PaddleOCR::boxes(values, width, height, width, source); }
};

std::vector<PaddleOCR::Glyph> glyphs(const std::string& letters, const std::vector<float>& confidences) {
    std::vector<PaddleOCR::Glyph> result;
    for (size_t i = 0; i < letters.size(); ++i) result.push_back({std::string(1, letters[i]), confidences[i]});
    return result;
}

}  // namespace

TEST(PaddleOCRSizes, DetectionSizeEnlargesSmallImagesAndBoundsLongOnes) {
    EXPECT_EQ(PaddleOCR::detectionSize(100, 50), (Extent{192, 96}));      // doubled, not 736 / 50
    EXPECT_EQ(PaddleOCR::detectionSize(5000, 800), (Extent{4000, 640}));  // long side brought to 4,000
    EXPECT_EQ(PaddleOCR::detectionSize(1920, 1080), (Extent{1920, 1088}));
    EXPECT_EQ(PaddleOCR::detectionSize(500, 500), (Extent{736, 736}));
    EXPECT_EQ(PaddleOCR::detectionSize(0, 0), (Extent{32, 32}));
    EXPECT_EQ(PaddleOCR::detectionSize(3, 1), (Extent{32, 32}));
}

TEST(PaddleOCRSizes, TileOriginsCoverTheLengthWithOverlap) {
    EXPECT_EQ(PaddleOCR::tileOrigins(2000, 1024, 128), (std::vector<int>{0, 896, 976}));
    EXPECT_EQ(PaddleOCR::tileOrigins(1024, 1024, 128), (std::vector<int>{0}));
    EXPECT_EQ(PaddleOCR::tileOrigins(500, 1024, 128), (std::vector<int>{0}));
    EXPECT_EQ(PaddleOCR::tileOrigins(1920, 1024, 128), (std::vector<int>{0, 896}));
}

TEST(PaddleOCRSizes, TileSharesMeetAtTheMiddleOfEachOverlapAndCoverTheMap) {
    std::vector<int> origins = PaddleOCR::tileOrigins(2000, 1024, 128);
    int covered = 0;
    for (size_t i = 0; i < origins.size(); ++i) {
        auto [start, end] = PaddleOCR::tileShare(origins, i, 1024, 2000);
        EXPECT_EQ(origins[i] + start, covered) << "tile " << i;
        covered = origins[i] + end;
    }
    EXPECT_EQ(covered, 2000);
    EXPECT_EQ(PaddleOCR::tileShare(origins, 0, 1024, 2000), (std::pair{0, 960}));
}

TEST(PaddleOCRSizes, LineWidthKeepsTheAspectAndPadsShortLines) {
    EXPECT_EQ(PaddleOCR::lineWidth(30, 24), (PaddleOCR::LineWidth{60, 320}));
    EXPECT_EQ(PaddleOCR::lineWidth(240, 24), (PaddleOCR::LineWidth{480, 480}));
    EXPECT_EQ(PaddleOCR::lineWidth(100000, 24), (PaddleOCR::LineWidth{8192, 8192}));
    EXPECT_EQ(PaddleOCR::lineWidth(243, 24), (PaddleOCR::LineWidth{486, 488}));
    EXPECT_EQ(PaddleOCR::lineWidth(0, 0), (PaddleOCR::LineWidth{48, 320}));
}

// Every canvas fits its read width, which the recogniser accepts (a multiple of 8), is at most an
// eighth wider, and is one of few.
TEST(PaddleOCRSizes, RecognizerWidthsHoldTheCanvasInFewSteps) {
    EXPECT_EQ(PaddleOCR::recognizerWidth(0), 320);
    EXPECT_EQ(PaddleOCR::recognizerWidth(320), 320);
    EXPECT_EQ(PaddleOCR::recognizerWidth(328), 352);
    EXPECT_EQ(PaddleOCR::recognizerWidth(1024), 1024);
    EXPECT_EQ(PaddleOCR::recognizerWidth(1032), 1152);
    EXPECT_EQ(PaddleOCR::recognizerWidth(8192), 8192);
    std::set<int> widths;
    for (int canvas = 320; canvas <= 8192; canvas += 8) {
        int width = PaddleOCR::recognizerWidth(canvas);
        ASSERT_GE(width, canvas);
        ASSERT_EQ(width % 8, 0);
        ASSERT_LE(width, canvas + canvas / 8) << canvas;
        widths.insert(width);
    }
    EXPECT_LE(widths.size(), 50u);
}

TEST(PaddleOCRBoxes, FindsRegionsUnclipsThemAndScalesToTheSource) {
    Map map(64, 32);
    map.paint(10, 10, 21, 6, 0.9f);  // w = 20, h = 5 on the map
    auto boxes = map.boxes({128, 64});
    ASSERT_EQ(boxes.size(), 1u);
    double d = 20.0 * 5 * 1.4 / (2 * 25);  // 2.8
    EXPECT_NEAR(boxes[0].rect.minX(), 2 * (10 - d), 1e-9);
    EXPECT_NEAR(boxes[0].rect.minY(), 2 * (10 - d), 1e-9);
    EXPECT_NEAR(boxes[0].rect.maxX(), 2 * (30 + d), 1e-9);
    EXPECT_NEAR(boxes[0].rect.maxY(), 2 * (15 + d), 1e-9);
    EXPECT_NEAR(boxes[0].score, 0.9f, 1e-3);
}

TEST(PaddleOCRBoxes, DropsThinWeakAndTinyRegionsAndKeepsTopDownOrder) {
    Map map(100, 60);
    map.paint(5, 40, 30, 6, 0.9f);   // kept, second from the top
    map.paint(50, 5, 40, 2, 1.0f);   // 2 cells high: dropped however strong
    map.paint(5, 20, 30, 6, 0.3f);   // above the mask threshold, below the box score
    map.paint(50, 20, 3, 3, 0.25f);  // on, but weak
    map.paint(60, 10, 20, 5, 0.95f); // kept, first from the top
    auto boxes = map.boxes({100, 60});
    ASSERT_EQ(boxes.size(), 2u);
    EXPECT_LT(boxes[0].rect.minY(), boxes[1].rect.minY());
    EXPECT_NEAR(boxes[0].rect.midX(), 69.5, 1e-9);
}

TEST(PaddleOCRBoxes, JoinsDiagonalNeighboursAndClampsToTheSource) {
    Map map(40, 40);
    map.paint(0, 0, 5, 5, 1.0f);
    map.paint(5, 5, 5, 5, 1.0f);  // touches the first only at a corner
    auto boxes = map.boxes({40, 40});
    ASSERT_EQ(boxes.size(), 1u);
    EXPECT_EQ(boxes[0].rect.minX(), 0);
    EXPECT_EQ(boxes[0].rect.minY(), 0);
}

TEST(PaddleOCRBoxes, RefusesMapsThatDoNotHoldTheirSize) {
    std::vector<std::uint16_t> values(99, PaddleOCR::halfFromFloat(1));
    EXPECT_TRUE(PaddleOCR::boxes(values, 10, 10, 10, {10, 10}).empty());
    EXPECT_TRUE(PaddleOCR::boxes(values, 10, 5, 8, {10, 10}).empty());
    EXPECT_TRUE(PaddleOCR::boxes(values, 0, 5, 8, {10, 10}).empty());
}

TEST(PaddleOCRBoxes, StopsAtTheRegionLimit) {
    // 3,001 separate dots: the walk stops at the limit, and dots make no boxes anyway; a strong
    // region after them is never reached.
    Map map(6004, 12);
    for (int i = 0; i < 3001; ++i) map.paint(i * 2, 0, 1, 1, 0.9f);
    map.paint(0, 4, 40, 8, 0.9f);
    EXPECT_TRUE(map.boxes({6004, 12}).empty());
}

TEST(PaddleOCRHalf, RoundTripsAndMatchesTheThresholdPattern) {
    EXPECT_EQ(PaddleOCR::halfFromFloat(0.2f), 0x3266);
    EXPECT_EQ(PaddleOCR::halfFromFloat(1.0f), 0x3C00);
    EXPECT_EQ(PaddleOCR::halfFromFloat(-2.0f), 0xC000);
    EXPECT_EQ(PaddleOCR::halfFromFloat(1e6f), 0x7C00);
    EXPECT_EQ(PaddleOCR::halfFromFloat(std::ldexp(1.0f, -24)), 0x0001);
    for (float v : {0.0f, 0.25f, 0.5f, 0.999f, 65504.0f, 6.1035156e-05f})
        EXPECT_NEAR(PaddleOCR::floatFromHalf(PaddleOCR::halfFromFloat(v)), v, v * 1e-3) << v;
}

TEST(PaddleOCRDecode, CollapsesRepeatsUnlessABlankSeparatesThem) {
    std::vector<std::string> characters{"a", "b", "c", "d", "e"};
    std::vector<std::int64_t> indices{5, 5, 0, 5};
    std::vector<float> scores{0.9f, 0.8f, 0.99f, 0.7f};
    auto result = PaddleOCR::decode(indices, scores, characters);
    ASSERT_EQ(result.size(), 2u);
    EXPECT_EQ(result[0], (PaddleOCR::Glyph{"e", 0.9f, 0}));
    EXPECT_EQ(result[1], (PaddleOCR::Glyph{"e", 0.7f, 3}));
}

TEST(PaddleOCRDecode, SkipsClassesBeyondTheListAndStepsWithoutScores) {
    std::vector<std::string> characters{"a", "b"};
    std::vector<std::int64_t> indices{1, 3, 2, 1};
    std::vector<float> scores{0.9f, 0.9f, 0.9f};
    auto result = PaddleOCR::decode(indices, scores, characters);
    ASSERT_EQ(result.size(), 2u);
    EXPECT_EQ(result[0].text, "a");
    EXPECT_EQ(result[1].text, "b");
}

TEST(PaddleOCRClean, RemovesAStrayFirstMarkOnlyAgainstAConfidentRest) {
    auto line = PaddleOCR::cleaned(glyphs("lab", {0.6f, 0.95f, 0.95f}));
    ASSERT_TRUE(line);
    EXPECT_EQ(line->text, "ab");
    EXPECT_NEAR(line->score, (0.6 + 0.95 + 0.95) / 3, 1e-6);
    EXPECT_EQ(PaddleOCR::cleaned(glyphs("la", {0.6f, 0.95f}))->text, "la");
    EXPECT_EQ(PaddleOCR::cleaned(glyphs("l ab", {0.6f, 0.99f, 0.95f, 0.95f}))->text, "ab");
    EXPECT_EQ(PaddleOCR::cleaned(glyphs("abc|", {0.95f, 0.95f, 0.95f, 0.6f}))->text, "abc");
}

TEST(PaddleOCRClean, DropsUnsureAndEmptyLinesAndTrimsBlanks) {
    EXPECT_FALSE(PaddleOCR::cleaned({}));
    EXPECT_FALSE(PaddleOCR::cleaned(glyphs("abc", {0.4f, 0.5f, 0.5f})));
    EXPECT_FALSE(PaddleOCR::cleaned(glyphs("  ", {0.9f, 0.9f})));
    EXPECT_EQ(PaddleOCR::cleaned(glyphs(" a b ", {0.9f, 0.9f, 0.9f, 0.9f, 0.9f}))->text, "a b");
}

TEST(PaddleOCRStrayMarks, KeepsWordsAndNumbersAndOnlyMarksWhenNothingElse) {
    using Item = PaddleOCR::Item;
    std::vector<Item> items{{"..", Rect(0, 0, 1, 1)}, {"OK", Rect(0, 2, 1, 1)}, {"-", Rect(0, 4, 1, 1)},
                            {"7", Rect(0, 6, 1, 1)},  {"...", Rect(0, 8, 1, 1)}, {"é", Rect(0, 9, 1, 1)}};
    auto kept = PaddleOCR::withoutStrayMarks(items);
    std::vector<std::string> texts;
    for (const auto& item : kept) texts.push_back(item.text);
    EXPECT_EQ(texts, (std::vector<std::string>{"OK", "7", "...", "é"}));
    std::vector<Item> marks{{"..", Rect(0, 0, 1, 1)}, {"-", Rect(0, 2, 1, 1)}};
    EXPECT_EQ(PaddleOCR::withoutStrayMarks(marks), marks);
}

TEST(PaddleOCRWordSpaces, FindsWideInklessRunsBetweenTheInkOnly) {
    // 40 x 10 canvas, background 200, ink rows 2..7 (height 6, minimum gap 3): letters at 2-5,
    // 7-9 (a gap of 1), 14-17 (a gap of 4), then grey padding beyond the content.
    const int width = 40, height = 10, content = 24;
    std::vector<std::uint8_t> luminance(width * height, 128);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < content; ++x) luminance[y * width + x] = 200;
    auto ink = [&](int from, int to) {
        for (int y = 2; y <= 7; ++y)
            for (int x = from; x <= to; ++x) luminance[y * width + x] = 20;
    };
    ink(2, 5), ink(7, 9), ink(14, 17);
    EXPECT_EQ(PaddleOCR::wordGaps(luminance, width, height, content), (std::vector<PaddleOCR::Gap>{{10, 14, true}}));
    std::vector<std::uint8_t> blank(width * height, 200);
    EXPECT_TRUE(PaddleOCR::wordGaps(blank, width, height, content).empty());
}

TEST(PaddleOCRWordSpaces, PutsABlankWhereAGapLiesBetweenTwoGlyphsOnce) {
    std::vector<PaddleOCR::Glyph> read{{"a", 0.9f, 1}, {"b", 0.9f, 3}, {"c", 1.0f, 8}, {" ", 0.9f, 10}, {"d", 0.9f, 14}};
    // gaps centred at 36 (between b at 28 and c at 68) and at 90 (next to the blank already read)
    auto spaced = PaddleOCR::withWordSpaces(read, {{32, 40, true}, {86, 94, true}});
    std::string text;
    for (const auto& g : spaced) text += g.text;
    EXPECT_EQ(text, "ab c d");
    EXPECT_NEAR(spaced[2].confidence, 0.95f, 1e-6);
}

// Proportional text at 16 px leaves about 0.4 em between words, under half the ink's height: such
// gaps were missed ("Renderstorage"). Letter gaps of 2 columns and ink 30 high: a gap of 9 is a
// word gap between letters only, one of 13 also next to punctuation.
TEST(PaddleOCRWordSpaces, AGapOfAThirdOfTheInkIsAWordGapWhereLettersStandClose) {
    const int width = 200, height = 48;
    std::vector<std::uint8_t> luminance(width * height, 255);
    int x = 4;
    auto letter = [&](int gapBefore) {
        x += gapBefore;
        for (int y = 10; y < 40; ++y)
            for (int dx = 0; dx < 8; ++dx) luminance[y * width + x + dx] = 0;
        x += 8;
    };
    for (int gap : {0, 2, 2, 2, 9, 2, 2, 2, 13, 2, 2}) letter(gap);
    auto gaps = PaddleOCR::wordGaps(luminance, width, height, width);
    EXPECT_EQ(gaps, (std::vector<PaddleOCR::Gap>{{42, 51, false}, {89, 102, true}}));
}

TEST(PaddleOCRWordSpaces, NoBlankBeforeClosingPunctuationOrAfterAnOpeningBracket) {
    auto text = [](const std::vector<PaddleOCR::Glyph>& glyphs, const std::vector<PaddleOCR::Gap>& gaps) {
        std::string joined;
        for (const auto& g : PaddleOCR::withWordSpaces(glyphs, gaps)) joined += g.text;
        return joined;
    };
    // Glyphs at steps 1, 3, 5: the gaps lie between them at columns 16 and 32.
    auto three = [](const char* a, const char* b, const char* c) {
        return std::vector<PaddleOCR::Glyph>{{a, 0.9f, 1}, {b, 0.9f, 3}, {c, 0.9f, 5}};
    };
    std::vector<PaddleOCR::Gap> wide{{14, 18, true}, {30, 34, true}}, narrow{{14, 18, false}, {30, 34, false}};
    EXPECT_EQ(text(three("a", ".", "b"), wide), "a. b");
    EXPECT_EQ(text(three("a", ".", "b"), narrow), "a.b");  // a monospaced full stop between words
    EXPECT_EQ(text(three("(", "a", ")"), wide), "(a)");
    EXPECT_EQ(text(three("a", ")", ";"), wide), "a);");
    EXPECT_EQ(text(three("a", "b", "c"), narrow), "a b c");
    EXPECT_EQ(text(three("a", "=", "b"), wide), "a = b");
}
