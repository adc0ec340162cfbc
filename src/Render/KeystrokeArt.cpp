#include "Render/KeystrokeArt.h"

#include "Render/AnnotationFont.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>

namespace halvane {

std::optional<AnnotationArt::Rendered> KeystrokeArt::render(const std::string& rawText, double sizeFraction,
                                                            double minCanvasDim, double scale) {
    QString text = rawText.empty() ? QStringLiteral(" ") : QString::fromStdString(rawText);
    double f = scale * minCanvasDim * std::clamp(sizeFraction, 0.02, 0.08);
    if (!(f >= 4)) return std::nullopt;

    AnnotationFont font(f, QFont::DemiBold);
    // Letter spacing is set in the layout size, which the font then stretches to f.
    font.font.setLetterSpacing(QFont::AbsoluteSpacing, f * 0.03 / font.stretch);
    Size textSize = font.measure(text, 4096);
    double w = std::ceil(2 * f * 0.55 + textSize.width);
    double h = std::ceil(2 * f * 0.34 + textSize.height);
    if (w < 1 || h < 1 || w >= AnnotationArt::maximumSide || h >= AnnotationArt::maximumSide) return std::nullopt;

    QImage image(int(w), int(h), QImage::Format_ARGB32_Premultiplied);
    if (image.isNull()) return std::nullopt;
    image.fill(Qt::transparent);
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing, true);
    p.setRenderHint(QPainter::TextAntialiasing, true);
    QRectF box = QRectF(0, 0, w, h).adjusted(0.75, 0.75, -0.75, -0.75);
    double radius = std::min(f * 0.5, h * 0.32);
    QPainterPath pill;
    pill.addRoundedRect(box, radius, radius);
    p.fillPath(pill, QColor(0, 0, 0, int(std::lround(0.72 * 255))));
    p.setPen(QPen(QColor(255, 255, 255, int(std::lround(0.28 * 255))), std::max(f * 0.05, 1.0)));
    p.setBrush(Qt::NoBrush);
    p.drawPath(pill);
    p.setPen(Qt::white);
    font.draw(p, QRectF(0, 0, w, h), Qt::AlignCenter | Qt::TextWordWrap, text);
    p.end();
    return AnnotationArt::Rendered{std::move(image), Size{w / scale, h / scale}};
}

}  // namespace halvane
