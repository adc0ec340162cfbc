#include "Model/TextMeasurer.h"

#include <algorithm>
#include <sstream>

namespace halvane {

namespace {

constexpr double averageAdvance = 0.56;
constexpr double lineHeight = 1.2;

// Counts code points, not bytes, so accented and CJK text is not over-measured.
double glyphCount(const std::string& s) {
    return static_cast<double>(std::count_if(s.begin(), s.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

}  // namespace

Size estimatedTextSize(const std::string& text, double fontSize, double wrapWidth) {
    const double advance = averageAdvance * fontSize;
    double widest = 0;
    int lines = 0;
    std::istringstream paragraphs(text);
    std::string paragraph;
    while (std::getline(paragraphs, paragraph)) {
        double lineWidth = 0;
        ++lines;
        std::istringstream words(paragraph);
        std::string word;
        while (words >> word) {
            const double w = glyphCount(word) * advance;
            const double withWord = lineWidth > 0 ? lineWidth + advance + w : w;
            if (lineWidth > 0 && withWord > wrapWidth) {
                widest = std::max(widest, lineWidth);
                ++lines;
                lineWidth = w;
            } else {
                lineWidth = withWord;
            }
        }
        if (lineWidth == 0) lineWidth = glyphCount(paragraph) * advance;  // blanks only
        widest = std::max(widest, std::min(lineWidth, std::max(wrapWidth, advance)));
    }
    if (!text.empty() && text.back() == '\n') ++lines;
    return {widest, std::max(lines, 1) * lineHeight * fontSize};
}

}  // namespace halvane
