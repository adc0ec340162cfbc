#pragma once

#include "Support/Geometry.h"
#include "Support/HalvaneError.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace halvane {

// The pure half of the PP-OCR text reader: sizes, tiling, map to boxes, CTC decoding and the
// cleaning of what the recogniser returns. No model and no platform here, so every rule can be
// tested on plain numbers.
struct PaddleOCR {
    // A text region found on the detector's map, in source pixels with the origin top left.
    struct Box {
        Rect rect;
        float score = 0;
        friend bool operator==(const Box&, const Box&) = default;
    };

    struct Glyph {
        std::string text;
        float confidence = 0;
        int step = -1;  // the recogniser's time step it was read at; -1 for one added afterwards
        friend bool operator==(const Glyph&, const Glyph&) = default;
    };

    struct Line {
        std::string text;
        float score = 0;
        friend bool operator==(const Line&, const Line&) = default;
    };

    // A read line with its box, before it becomes a normalised fragment.
    struct Item {
        std::string text;
        Rect rect;
        friend bool operator==(const Item&, const Item&) = default;
    };

    struct Extent {
        int width = 0;
        int height = 0;
        friend bool operator==(const Extent&, const Extent&) = default;
    };

    struct LineWidth {
        int content = 0;  // the crop's width once scaled to the recogniser's height
        int canvas = 0;   // the input width the recogniser runs at
        friend bool operator==(const LineWidth&, const LineWidth&) = default;
    };

    // What can go wrong in reading, apart from a prediction's own error.
    class ReadError : public HalvaneError {
    public:
        enum class Kind { invalidModel, pixelBuffer };
        explicit ReadError(Kind kind);
        Kind kind() const { return kind_; }

    private:
        Kind kind_;
    };

    static constexpr int tileSize = 1024;
    static constexpr int tileOverlap = 128;
    static constexpr int lineHeight = 48;
    static constexpr int maximumRegions = 3000;

    // The detector's working size: the short side brought towards 736 (at most doubled), the long
    // side at most 4,000, both multiples of 32.
    static Extent detectionSize(int width, int height);
    static std::vector<int> tileOrigins(int length, int tile, int overlap);
    // The half of a tile that is its own: where its share of an axis starts and ends, in tile
    // coordinates. Overlaps are split at their middle.
    static std::pair<int, int> tileShare(const std::vector<int>& origins, size_t index, int tile, int mapLength);

    // Text boxes from a half-precision probability map (IEEE 754 binary16 bit patterns).
    static std::vector<Box> boxes(std::span<const std::uint16_t> values, int width, int height, int rowStride,
                                  Size source);
    static LineWidth lineWidth(double cropWidth, double cropHeight);
    // The width a line canvas is read at: one of a few, in steps of at most an eighth of the
    // canvas (32 columns below 512, then 64, 128, ...), so that the recogniser's convolutions, which
    // are set up for each input width, are set up once for many lines.
    static int recognizerWidth(int canvas);
    // Greedy CTC: class 0 is the blank, class i is characters[i - 1].
    static std::vector<Glyph> decode(std::span<const std::int64_t> indices, std::span<const float> scores,
                                     const std::vector<std::string>& characters);
    // A run of inkless columns on a line canvas, [start, end). `wide` ones (two fifths of the ink's
    // height or more) are spaces next to punctuation too; narrower ones only between letters and
    // digits, where letters stand closer than a monospaced full stop stands to its neighbours.
    struct Gap {
        int start = 0;
        int end = 0;
        bool wide = false;
        friend bool operator==(const Gap&, const Gap&) = default;
    };

    // The recogniser often runs words together on screen text. Word gaps are found on the line
    // canvas itself (luminance, row-major, `width` wide; the crop fills the first `contentWidth`
    // columns): runs of inkless columns between the ink that are a quarter of the ink's height
    // wide and clearly wider than the line's letter spacing, or `wide` ones.
    static std::vector<Gap> wordGaps(std::span<const std::uint8_t> luminance, int width, int height,
                                     int contentWidth);
    // A blank between two glyphs whose time steps lie on either side of a word gap, never before
    // closing punctuation or after an opening bracket.
    static std::vector<Glyph> withWordSpaces(const std::vector<Glyph>& glyphs, const std::vector<Gap>& gaps,
                                             int stepWidth = 8);
    static std::optional<Line> cleaned(const std::vector<Glyph>& glyphs);
    static std::vector<Item> withoutStrayMarks(const std::vector<Item>& items);

    static std::uint16_t halfFromFloat(float value);
    static float floatFromHalf(std::uint16_t bits);
};

}  // namespace halvane
