#pragma once

// Screenshots with known text, drawn with Qt, for the text reading tests and benchmarks: UI-like
// forms, code and paragraphs in light and dark themes at a chosen text size, and labels turned a
// quarter. Header-only so that the benchmarks, which don't link the test library, can use it.

#include <QColor>
#include <QFont>
#include <QFontMetrics>
#include <QImage>
#include <QPainter>
#include <QString>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace halvane::test {

enum class TextLayout { form, code, paragraph };
enum class TextTheme { light, dark };

struct TextSample {
    std::string name;
    QImage image;
    std::string expected;  // rows from the top, the pieces of a row joined by one blank
    TextTheme theme = TextTheme::light;
    int pixelSize = 0;
};

namespace textsamples {

inline const std::vector<std::string>& words() {
    static const std::vector<std::string> list{
        "account", "settings", "window", "export", "record", "camera", "display", "preview", "shortcut",
        "quality", "format", "storage", "update", "project", "library", "capture", "folder", "network",
        "privacy", "general", "audio", "volume", "frame", "render", "timeline", "canvas", "border",
        "shadow", "cursor", "zoom", "speed", "caption", "transcript", "language", "screen", "history",
        "backup", "profile", "theme", "contrast", "Open", "Save", "Share", "Delete", "Rename", "Copy",
        "Enable", "Show", "Choose", "Apply", "version", "status", "error", "message", "download",
        "recent", "files", "minutes", "seconds", "pixels", "width", "height", "default", "custom"};
    return list;
}

// A small deterministic generator, so that every run draws the same text.
struct Sequence {
    std::uint32_t state;
    std::uint32_t next() {
        state = state * 1664525u + 1013904223u;
        return state >> 8;
    }
    size_t below(size_t n) { return next() % n; }
    const std::string& word() { return words()[below(words().size())]; }
    std::string number() { return std::to_string(below(2000) + 1); }
};

inline std::string phrase(Sequence& sequence, int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        if (i) text += ' ';
        text += sequence.below(6) == 0 ? sequence.number() : sequence.word();
    }
    if (!text.empty()) text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    return text;
}

struct Palette {
    QColor background, panel, text, secondary, accent, onAccent, code;
};

inline Palette palette(TextTheme theme) {
    if (theme == TextTheme::light)
        return {QColor("#FFFFFF"), QColor("#F2F2F7"), QColor("#1C1C1E"), QColor("#6E6E73"), QColor("#0A64D6"),
                QColor("#FFFFFF"), QColor("#A0256E")};
    return {QColor("#1E1E1E"), QColor("#2C2C2E"), QColor("#F2F2F7"), QColor("#A1A1A6"), QColor("#0A84FF"),
            QColor("#FFFFFF"), QColor("#FF7AB2")};
}

inline QImage canvas(int width, int height, const Palette& colors) {
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    image.fill(colors.background);
    return image;
}

inline std::string joinedRows(const std::vector<std::string>& rows) {
    std::string joined;
    for (const auto& row : rows) joined += (joined.empty() ? "" : "\n") + row;
    return joined;
}

// A painter on the image with antialiased text in the family and size given.
inline QFont startText(QPainter& painter, const char* family, int pixelSize) {
    painter.setRenderHint(QPainter::TextAntialiasing);
    QFont font(family);
    font.setPixelSize(pixelSize);
    painter.setFont(font);
    return font;
}

inline std::string themeName(TextTheme theme) { return theme == TextTheme::light ? "light" : "dark"; }

}  // namespace textsamples

// A settings form: a title, rows of label and value, a panel, and two buttons at the bottom.
inline TextSample renderForm(int width, int height, TextTheme theme, int pixelSize, std::uint32_t seed) {
    using namespace textsamples;
    Sequence sequence{seed};
    Palette colors = palette(theme);
    QImage image = canvas(width, height, colors);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::TextAntialiasing);
    painter.setRenderHint(QPainter::Antialiasing);
    QFont font("DejaVu Sans");
    font.setPixelSize(pixelSize);
    QFont title = font;
    title.setPixelSize(pixelSize * 3 / 2);
    title.setBold(true);
    int row = pixelSize * 2 + 8;
    int margin = std::max(16, pixelSize * 2);
    int y = margin;
    std::vector<std::string> rows;

    painter.setFont(title);
    painter.setPen(colors.text);
    std::string heading = phrase(sequence, 2);
    painter.drawText(margin, y + QFontMetrics(title).ascent(), QString::fromStdString(heading));
    rows.push_back(heading);
    y += pixelSize * 3;

    painter.setPen(Qt::NoPen);
    painter.setBrush(colors.panel);
    int panelBottom = height - margin - row * 2;
    // Too short a form would paint its panel over the title and its buttons over the rows, and the
    // expected text would hold words that nobody can see.
    if (panelBottom < y + row) throw std::invalid_argument("a form of this text size needs more height");
    painter.drawRoundedRect(QRect(margin / 2, y - pixelSize / 2, width - margin, panelBottom - y + pixelSize / 2), 10, 10);
    painter.setFont(font);
    QFontMetrics metrics(font);
    int valueX = width / 2;
    while (y + row < panelBottom) {
        std::string label = phrase(sequence, 1 + static_cast<int>(sequence.below(2)));
        std::string value = phrase(sequence, 1 + static_cast<int>(sequence.below(3)));
        painter.setPen(colors.text);
        painter.drawText(margin, y + metrics.ascent(), QString::fromStdString(label));
        painter.setPen(colors.secondary);
        painter.drawText(valueX, y + metrics.ascent(), QString::fromStdString(value));
        rows.push_back(label + " " + value);
        y += row;
    }
    std::vector<std::string> buttons{phrase(sequence, 1), phrase(sequence, 1)};
    int x = width - margin;
    std::vector<QRect> frames;
    for (auto it = buttons.rbegin(); it != buttons.rend(); ++it) {
        int w = metrics.horizontalAdvance(QString::fromStdString(*it)) + pixelSize * 2;
        x -= w;
        frames.insert(frames.begin(), QRect(x, panelBottom + row / 2, w, pixelSize * 2));
        x -= pixelSize;
    }
    for (size_t i = 0; i < buttons.size(); ++i) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(i + 1 == buttons.size() ? colors.accent : colors.panel);
        painter.drawRoundedRect(frames[i], 6, 6);
        painter.setPen(i + 1 == buttons.size() ? colors.onAccent : colors.text);
        painter.drawText(frames[i], Qt::AlignCenter, QString::fromStdString(buttons[i]));
    }
    rows.push_back(buttons[0] + " " + buttons[1]);
    painter.end();

    return {"form-" + themeName(theme) + "-" + std::to_string(pixelSize), image, joinedRows(rows), theme, pixelSize};
}

// Source code in a monospaced font, indented, with punctuation.
inline TextSample renderCode(int width, int height, TextTheme theme, int pixelSize, std::uint32_t seed) {
    using namespace textsamples;
    Sequence sequence{seed};
    Palette colors = palette(theme);
    QImage image = canvas(width, height, colors);
    QPainter painter(&image);
    QFontMetrics metrics(startText(painter, "DejaVu Sans Mono", pixelSize));
    int margin = std::max(12, pixelSize);
    int step = metrics.height() + pixelSize / 2;
    std::vector<std::string> rows;
    for (int y = margin; y + step < height - margin;) {
        std::string name = sequence.word(), other = sequence.word();
        std::string line;
        switch (sequence.below(4)) {
        case 0: line = "let " + name + " = " + other + "(" + sequence.number() + ");"; break;
        case 1: line = "if (" + name + " > " + sequence.number() + ") {"; break;
        case 2: line = "return " + name + "." + other + ";"; break;
        default: line = name + "[" + sequence.number() + "] = \"" + other + "\";"; break;
        }
        int indent = static_cast<int>(sequence.below(3)) * 4;
        painter.setPen(sequence.below(3) == 0 ? colors.code : colors.text);
        painter.drawText(margin + indent * metrics.horizontalAdvance(' '), y + metrics.ascent(),
                         QString::fromStdString(line));
        rows.push_back(line);
        y += step;
    }
    painter.end();
    return {"code-" + themeName(theme) + "-" + std::to_string(pixelSize), image, joinedRows(rows), theme, pixelSize};
}

// Prose lines, each filled to the width.
inline TextSample renderParagraph(int width, int height, TextTheme theme, int pixelSize, std::uint32_t seed) {
    using namespace textsamples;
    Sequence sequence{seed};
    Palette colors = palette(theme);
    QImage image = canvas(width, height, colors);
    QPainter painter(&image);
    QFontMetrics metrics(startText(painter, "DejaVu Sans", pixelSize));
    painter.setPen(colors.text);
    int margin = std::max(16, pixelSize * 2);
    int step = metrics.height() + pixelSize / 3;
    std::vector<std::string> rows;
    for (int y = margin; y + step < height - margin; y += step) {
        std::string line = phrase(sequence, 1);
        while (true) {
            std::string next = line + " " + (sequence.below(7) == 0 ? sequence.number() : sequence.word());
            if (metrics.horizontalAdvance(QString::fromStdString(next + ".")) > width - 2 * margin) break;
            line = next;
        }
        line += ".";
        painter.drawText(margin, y + metrics.ascent(), QString::fromStdString(line));
        rows.push_back(line);
    }
    painter.end();
    return {"paragraph-" + themeName(theme) + "-" + std::to_string(pixelSize), image, joinedRows(rows), theme, pixelSize};
}

inline TextSample renderSample(TextLayout layout, int width, int height, TextTheme theme, int pixelSize,
                               std::uint32_t seed) {
    switch (layout) {
    case TextLayout::form: return renderForm(width, height, theme, pixelSize, seed);
    case TextLayout::code: return renderCode(width, height, theme, pixelSize, seed);
    case TextLayout::paragraph: break;
    }
    return renderParagraph(width, height, theme, pixelSize, seed);
}

// One label read top to bottom: drawn upright, then turned a quarter clockwise.
inline TextSample renderTurnedLabel(const std::string& text, TextTheme theme, int pixelSize) {
    using namespace textsamples;
    Palette colors = palette(theme);
    QFont font("DejaVu Sans");
    font.setPixelSize(pixelSize);
    QFontMetrics metrics(font);
    int length = metrics.horizontalAdvance(QString::fromStdString(text)) + pixelSize * 2;
    int thickness = metrics.height() + pixelSize;
    QImage image = canvas(thickness + 2 * pixelSize, length + 2 * pixelSize, colors);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::TextAntialiasing);
    painter.setFont(font);
    painter.setPen(colors.text);
    painter.translate(pixelSize + thickness, pixelSize);
    painter.rotate(90);
    painter.drawText(QRect(0, 0, length, thickness), Qt::AlignCenter, QString::fromStdString(text));
    painter.end();
    return {"turned-" + themeName(theme) + "-" + std::to_string(pixelSize), image, text, theme, pixelSize};
}

// Blanks collapsed inside lines, blank lines dropped, ends trimmed: layout differences that are
// not reading mistakes.
inline std::u32string normalizedText(const std::string& text) {
    std::u32string decoded;
    for (size_t i = 0; i < text.size();) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        int extra = c < 0x80 ? 0 : c < 0xE0 ? 1 : c < 0xF0 ? 2 : 3;
        char32_t code = extra == 0 ? c : c & (0x3F >> extra);
        for (int k = 1; k <= extra && i + k < text.size(); ++k) code = (code << 6) | (text[i + k] & 0x3F);
        decoded.push_back(code);
        i += extra + 1;
    }
    std::u32string result, line;
    auto flush = [&] {
        while (!line.empty() && line.back() == U' ') line.pop_back();
        if (!line.empty()) result += (result.empty() ? U"" : U"\n") + line;
        line.clear();
    };
    for (char32_t c : decoded) {
        if (c == U'\n') flush();
        else if (c == U' ' || c == U'\t' || c == U'\r') {
            if (!line.empty() && line.back() != U' ') line.push_back(U' ');
        } else line.push_back(c);
    }
    flush();
    return result;
}

// Edit distance between what was read and what is there, per character of what is there.
inline double characterErrorRate(const std::string& read, const std::string& expected) {
    std::u32string a = normalizedText(read), b = normalizedText(expected);
    if (b.empty()) return a.empty() ? 0 : 1;
    std::vector<size_t> previous(b.size() + 1), current(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) previous[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        current[0] = i;
        for (size_t j = 1; j <= b.size(); ++j)
            current[j] = std::min({previous[j] + 1, current[j - 1] + 1, previous[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1)});
        std::swap(previous, current);
    }
    return static_cast<double>(previous[b.size()]) / static_cast<double>(b.size());
}

}  // namespace halvane::test
