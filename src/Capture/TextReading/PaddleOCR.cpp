#include "Capture/TextReading/PaddleOCR.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <string_view>

namespace halvane {

namespace {

// A cell is text when its probability is above 0.2, whose binary16 pattern is 0x3266.
constexpr std::uint16_t textThresholdBits = 0x3266;
constexpr float minimumBoxScore = 0.45f;
constexpr double unclipRatio = 1.4;

template <class Visit>
void forEachCodePoint(const std::string& text, Visit visit) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    int32_t length = static_cast<int32_t>(text.size());
    for (int32_t i = 0; i < length;) {
        UChar32 c;
        U8_NEXT(bytes, i, length, c);
        if (c >= 0) visit(c);
    }
}

bool isBlank(const std::string& text) {
    bool blank = true;
    forEachCodePoint(text, [&](UChar32 c) { blank = blank && u_isUWhiteSpace(c); });
    return blank;
}

bool isLetterOrDigit(const std::string& text) {
    bool any = false, all = true;
    forEachCodePoint(text, [&](UChar32 c) {
        any = true;
        all = all && u_isalnum(c);
    });
    return any && all;
}

// Whether a glyph is one of the punctuation marks listed (ASCII only).
bool closesOrOpens(const std::string& text, std::string_view marks) {
    return text.size() == 1 && marks.find(text[0]) != std::string_view::npos;
}

void stripBlankEnds(std::vector<PaddleOCR::Glyph>& glyphs) {
    while (!glyphs.empty() && isBlank(glyphs.back().text)) glyphs.pop_back();
    auto first = std::find_if(glyphs.begin(), glyphs.end(), [](const auto& g) { return !isBlank(g.text); });
    glyphs.erase(glyphs.begin(), first);
}

// A low-confidence mark at the edge of a line that the rest of the line reads with confidence
// is usually a border or an icon read as a letter.
bool isStray(const PaddleOCR::Glyph& edge, std::span<const PaddleOCR::Glyph> rest) {
    if (edge.confidence >= 0.7f) return false;
    int count = 0;
    double sum = 0;
    for (const auto& g : rest) {
        if (isBlank(g.text)) continue;
        ++count;
        sum += g.confidence;
    }
    return count >= 2 && sum / count >= 0.9;
}

}  // namespace

PaddleOCR::ReadError::ReadError(Kind kind)
    : HalvaneError(kind == Kind::invalidModel ? "The PP-OCRv6 model is damaged" : "Couldn't prepare the image"),
      kind_(kind) {}

PaddleOCR::Extent PaddleOCR::detectionSize(int width, int height) {
    double shortSide = std::min(width, height);
    double longSide = std::max(width, height);
    double ratio = shortSide < 1 ? 2.0 : shortSide >= 736 ? 1.0 : std::min(736.0 / shortSide, 2.0);
    if (ratio * longSide > 4000) ratio = ratio * 4000 / (ratio * longSide);
    auto side = [&](int length) { return std::max(32, static_cast<int>(std::round(ratio * length / 32)) * 32); };
    return {side(width), side(height)};
}

std::vector<int> PaddleOCR::tileOrigins(int length, int tile, int overlap) {
    if (tile >= length) return {0};
    std::vector<int> origins;
    int step = std::max(1, tile - overlap);
    for (int origin = 0; origin + tile < length; origin += step) origins.push_back(origin);
    origins.push_back(length - tile);
    return origins;
}

std::pair<int, int> PaddleOCR::tileShare(const std::vector<int>& origins, size_t index, int tile, int mapLength) {
    int origin = origins[index];
    int start = index > 0 ? (origins[index - 1] + origin + tile) / 2 - origin : 0;
    int end = index + 1 < origins.size() ? (origins[index + 1] + origin + tile) / 2 - origin
                                         : std::min(tile, mapLength - origin);
    return {std::max(0, start), std::min(end, mapLength - origin)};
}

std::vector<PaddleOCR::Box> PaddleOCR::boxes(std::span<const std::uint16_t> values, int width, int height,
                                             int rowStride, Size source) {
    std::vector<Box> result;
    if (width < 1 || height < 1 || rowStride < width) return result;
    if (values.size() < static_cast<size_t>(height - 1) * rowStride + width) return result;

    auto isOn = [](std::uint16_t bits) { return (bits & 0x8000) == 0 && bits > textThresholdBits; };
    std::vector<std::uint8_t> visited(static_cast<size_t>(width) * height, 0);
    std::vector<std::pair<int, int>> stack;
    int regions = 0;
    double sx = source.width / width, sy = source.height / height;

    for (int y0 = 0; y0 < height; ++y0) {
        for (int x0 = 0; x0 < width; ++x0) {
            size_t cell = static_cast<size_t>(y0) * width + x0;
            if (visited[cell] || !isOn(values[static_cast<size_t>(y0) * rowStride + x0])) continue;
            if (++regions > maximumRegions) return result;
            int minX = x0, maxX = x0, minY = y0, maxY = y0;
            visited[cell] = 1;
            stack.assign(1, {x0, y0});
            while (!stack.empty()) {
                auto [x, y] = stack.back();
                stack.pop_back();
                minX = std::min(minX, x), maxX = std::max(maxX, x);
                minY = std::min(minY, y), maxY = std::max(maxY, y);
                for (int dy = -1; dy <= 1; ++dy) {
                    for (int dx = -1; dx <= 1; ++dx) {
                        int nx = x + dx, ny = y + dy;
                        if (nx < 0 || ny < 0 || nx >= width || ny >= height) continue;
                        size_t n = static_cast<size_t>(ny) * width + nx;
                        if (visited[n] || !isOn(values[static_cast<size_t>(ny) * rowStride + nx])) continue;
                        visited[n] = 1;
                        stack.push_back({nx, ny});
                    }
                }
            }
            int w = maxX - minX, h = maxY - minY;
            if (std::min(w, h) < 3) continue;
            double sum = 0;
            for (int y = minY; y <= maxY; ++y)
                for (int x = minX; x <= maxX; ++x) sum += floatFromHalf(values[static_cast<size_t>(y) * rowStride + x]);
            float score = static_cast<float>(sum / ((w + 1.0) * (h + 1.0)));
            double d = (w * h * unclipRatio) / (2.0 * (w + h));
            if (score < minimumBoxScore || std::min(w, h) + 2 * d < 5) continue;
            double left = std::max(sx * (minX - d), 0.0), top = std::max(sy * (minY - d), 0.0);
            double right = std::min(sx * (maxX + d), source.width), bottom = std::min(sy * (maxY + d), source.height);
            if (!(left < right && top < bottom)) continue;
            result.push_back({Rect(left, top, right - left, bottom - top), score});
        }
    }
    return result;
}

PaddleOCR::LineWidth PaddleOCR::lineWidth(double cropWidth, double cropHeight) {
    double unclamped = std::ceil(std::max(cropWidth, 1.0) / std::max(cropHeight, 1.0) * lineHeight);
    int content = static_cast<int>(std::clamp(unclamped, 1.0, 8192.0));
    int canvas = unclamped < 320 ? 320 : std::min(8192, (content + 7) / 8 * 8);
    return {content, canvas};
}

int PaddleOCR::recognizerWidth(int canvas) {
    constexpr int narrowest = 320, widest = 8192;
    if (canvas <= narrowest) return narrowest;
    int step = 8;
    while (step * 16 <= canvas) step *= 2;
    return std::min(widest, (canvas + step - 1) / step * step);
}

std::vector<PaddleOCR::Glyph> PaddleOCR::decode(std::span<const std::int64_t> indices, std::span<const float> scores,
                                                const std::vector<std::string>& characters) {
    std::vector<Glyph> glyphs;
    std::int64_t previous = -1;
    for (size_t t = 0; t < indices.size(); ++t) {
        std::int64_t i = indices[t];
        if (i != 0 && i != previous && i > 0 && static_cast<size_t>(i) <= characters.size() && t < scores.size())
            glyphs.push_back({characters[static_cast<size_t>(i - 1)], scores[t], static_cast<int>(t)});
        previous = i;
    }
    return glyphs;
}

std::vector<PaddleOCR::Gap> PaddleOCR::wordGaps(std::span<const std::uint8_t> luminance, int width, int height,
                                                int contentWidth) {
    std::vector<Gap> gaps;
    contentWidth = std::min(contentWidth, width);
    if (contentWidth < 3 || height < 3 || luminance.size() < static_cast<size_t>(width) * height) return gaps;
    auto at = [&](int x, int y) { return luminance[static_cast<size_t>(y) * width + x]; };
    // The background is what the crop's border mostly shows.
    std::vector<std::uint8_t> border;
    for (int x = 0; x < contentWidth; ++x) border.push_back(at(x, 0)), border.push_back(at(x, height - 1));
    for (int y = 0; y < height; ++y) border.push_back(at(0, y)), border.push_back(at(contentWidth - 1, y));
    std::nth_element(border.begin(), border.begin() + border.size() / 2, border.end());
    int background = border[border.size() / 2];
    auto isInk = [&](int x, int y) { return std::abs(int(at(x, y)) - background) > 48; };

    std::vector<bool> columnInk(contentWidth, false);
    int top = height, bottom = -1;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < contentWidth; ++x) {
            if (!isInk(x, y)) continue;
            columnInk[x] = true;
            top = std::min(top, y), bottom = std::max(bottom, y);
        }
    }
    if (bottom < top) return gaps;
    int first = static_cast<int>(std::find(columnInk.begin(), columnInk.end(), true) - columnInk.begin());
    int last = contentWidth - 1 - static_cast<int>(std::find(columnInk.rbegin(), columnInk.rend(), true) - columnInk.rbegin());
    std::vector<std::pair<int, int>> runs;
    for (int x = first; x <= last;) {
        if (columnInk[x]) {
            ++x;
            continue;
        }
        int start = x;
        while (x <= last && !columnInk[x]) ++x;
        runs.push_back({start, x});
    }
    if (runs.empty()) return gaps;

    // In em, with the ink about one em high: a space leaves 0.4 em or more between proportional
    // letters and 0.65 em between monospaced ones; within a word letters stand some 0.1 em apart,
    // narrow monospaced ones (i, l) up to 0.3 em, and a monospaced full stop 0.35 em from its
    // neighbours. So between letters a run is a word gap when it is over a quarter of the ink's
    // height and well above the line's letter spacing; next to punctuation it must be wide.
    std::vector<int> widths;
    for (const auto& [start, end] : runs) widths.push_back(end - start);
    // The lower third: lines of short words have about as many word gaps as letter gaps.
    std::nth_element(widths.begin(), widths.begin() + widths.size() / 3, widths.end());
    double letterSpacing = widths[widths.size() / 3];
    double inkHeight = bottom - top + 1;
    double wide = std::max(3.0, 0.4 * inkHeight);
    double likely = std::max({3.0, 0.25 * inkHeight, 2.5 * letterSpacing});
    for (const auto& [start, end] : runs)
        if (end - start >= std::min(wide, likely)) gaps.push_back({start, end, end - start >= wide});
    return gaps;
}

std::vector<PaddleOCR::Glyph> PaddleOCR::withWordSpaces(const std::vector<Glyph>& glyphs, const std::vector<Gap>& gaps,
                                                        int stepWidth) {
    std::vector<Glyph> result;
    for (size_t i = 0; i < glyphs.size(); ++i) {
        if (i > 0) {
            const Glyph& before = glyphs[i - 1];
            const Glyph& after = glyphs[i];
            if (before.step >= 0 && after.step >= 0 && !isBlank(before.text) && !isBlank(after.text) &&
                !closesOrOpens(after.text, ".,;:!?)]}") && !closesOrOpens(before.text, "([{")) {
                bool letters = isLetterOrDigit(before.text) && isLetterOrDigit(after.text);
                double from = (before.step + 0.5) * stepWidth, to = (after.step + 0.5) * stepWidth;
                bool gapBetween = std::any_of(gaps.begin(), gaps.end(), [&](const Gap& gap) {
                    double middle = (gap.start + gap.end) / 2.0;
                    return middle > from && middle < to && (gap.wide || letters);
                });
                if (gapBetween) result.push_back({" ", (before.confidence + after.confidence) / 2, -1});
            }
        }
        result.push_back(glyphs[i]);
    }
    return result;
}

std::optional<PaddleOCR::Line> PaddleOCR::cleaned(const std::vector<Glyph>& input) {
    if (input.empty()) return std::nullopt;
    double sum = 0;
    for (const auto& g : input) sum += g.confidence;
    float mean = static_cast<float>(sum / input.size());
    if (mean < 0.5f) return std::nullopt;

    std::vector<Glyph> glyphs = input;
    stripBlankEnds(glyphs);
    if (!glyphs.empty() && isStray(glyphs.front(), std::span(glyphs).subspan(1))) {
        glyphs.erase(glyphs.begin());
        stripBlankEnds(glyphs);
    }
    if (!glyphs.empty() && isStray(glyphs.back(), std::span(glyphs).first(glyphs.size() - 1))) {
        glyphs.pop_back();
        stripBlankEnds(glyphs);
    }
    std::string text;
    for (const auto& g : glyphs) text += g.text;
    if (text.empty()) return std::nullopt;
    return Line{text, mean};
}

std::vector<PaddleOCR::Item> PaddleOCR::withoutStrayMarks(const std::vector<Item>& items) {
    std::vector<Item> kept;
    for (const auto& item : items) {
        int count = 0;
        bool letterOrNumber = false;
        forEachCodePoint(item.text, [&](UChar32 c) {
            if (u_isUWhiteSpace(c)) return;
            ++count;
            letterOrNumber = letterOrNumber || u_isalpha(c) || u_hasBinaryProperty(c, UCHAR_ALPHABETIC) ||
                             u_getNumericValue(c) != U_NO_NUMERIC_VALUE;
        });
        if (count >= 3 || letterOrNumber) kept.push_back(item);
    }
    return kept.empty() ? items : kept;
}

std::uint16_t PaddleOCR::halfFromFloat(float value) {
    std::uint32_t f = std::bit_cast<std::uint32_t>(value);
    std::uint16_t sign = static_cast<std::uint16_t>((f >> 16) & 0x8000);
    std::uint32_t magnitude = f & 0x7fffffff;
    if (magnitude >= 0x7f800000) return sign | (magnitude > 0x7f800000 ? 0x7e00 : 0x7c00);
    if (magnitude >= 0x477ff000) return sign | 0x7c00;  // too large: infinity
    if (magnitude < 0x38800000) {  // below the smallest normal half: a multiple of 2^-24
        float scaled = std::ldexp(std::bit_cast<float>(magnitude), 24);
        return sign | static_cast<std::uint16_t>(std::nearbyint(scaled));
    }
    std::uint32_t half = ((magnitude - 0x38000000) >> 13);
    std::uint32_t rest = magnitude & 0x1fff;
    if (rest > 0x1000 || (rest == 0x1000 && (half & 1))) ++half;
    return sign | static_cast<std::uint16_t>(half);
}

float PaddleOCR::floatFromHalf(std::uint16_t bits) {
    std::uint32_t sign = static_cast<std::uint32_t>(bits & 0x8000) << 16;
    std::uint32_t exponent = (bits >> 10) & 0x1f;
    std::uint32_t mantissa = bits & 0x3ff;
    if (exponent == 0) {
        float value = std::ldexp(static_cast<float>(mantissa), -24);
        return sign ? -value : value;
    }
    if (exponent == 31) return std::bit_cast<float>(sign | 0x7f800000 | (mantissa << 13));
    return std::bit_cast<float>(sign | ((exponent + 112) << 23) | (mantissa << 13));
}

}  // namespace halvane
