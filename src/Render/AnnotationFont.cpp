#include "Render/AnnotationFont.h"

#include <QFontMetricsF>
#include <QPainter>

#include <cmath>

namespace halvane {

namespace {
constexpr double tallestLayout = 100000;
}

AnnotationFont::AnnotationFont(double pixelSize, QFont::Weight weight) {
    const int whole = std::max(1, static_cast<int>(std::lround(pixelSize)));
    stretch = pixelSize > 0 ? pixelSize / whole : 1;
    font.setPixelSize(whole);
    font.setWeight(weight);
    // Hinting would snap glyphs to the whole-size grid and break the stretch's proportions.
    font.setHintingPreference(QFont::PreferNoHinting);
}

Size AnnotationFont::measure(const QString& text, double wrapWidth) const {
    const QFontMetricsF metrics(font);
    const QRectF r = metrics.boundingRect(QRectF(0, 0, wrapWidth / stretch, tallestLayout),
                                          Qt::TextWordWrap | Qt::AlignLeft | Qt::AlignTop, text);
    return {r.width() * stretch, r.height() * stretch};
}

void AnnotationFont::draw(QPainter& painter, const QRectF& box, int flags, const QString& text) const {
    painter.save();
    painter.setFont(font);
    painter.translate(box.topLeft());
    painter.scale(stretch, stretch);
    painter.drawText(QRectF(0, 0, box.width() / stretch, box.height() / stretch), flags, text);
    painter.restore();
}

TextMeasurer annotationTextMeasurer() {
    return [](const std::string& text, double fontSize, double wrapWidth) {
        return AnnotationFont(fontSize, QFont::DemiBold).measure(QString::fromStdString(text), wrapWidth);
    };
}

}  // namespace halvane
