#include "Render/CardBorder.h"

#include "Render/LiquidGlass.h"
#include "Render/QtColor.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QPainterPathStroker>

#include <algorithm>
#include <cmath>

namespace halvane {

namespace {

Color white(double a) { return {1, 1, 1, a}; }
Color black(double a) { return {0, 0, 0, a}; }

Rect grown(const Rect& r, double by) { return r.insetBy(-by, -by); }

QPainterPath roundedPath(const Rect& r, double radius) {
    QPainterPath path;
    Rect s = r.standardized();
    double rr = std::clamp(radius, 0.0, std::min(s.width(), s.height()) / 2);
    path.addRoundedRect(QRectF(s.minX(), s.minY(), s.width(), s.height()), rr, rr);
    return path;
}

QPointF pointIn(const Rect& r, Point fraction) {
    return {r.minX() + fraction.x * r.width(), r.minY() + fraction.y * r.height()};
}

}  // namespace

std::optional<CardBorder::Band> CardBorder::band(CardBorderStyle style, double strength, const Rect& cardRect,
                                                 double radius, Size canvasSize) {
    if (strength <= 0.001) return std::nullopt;
    double margin = std::min({cardRect.minX(), cardRect.minY(), canvasSize.width - cardRect.maxX(),
                              canvasSize.height - cardRect.maxY()});
    margin = std::max(margin, 0.0);
    double width =
        std::min(margin, std::min(cardRect.width(), cardRect.height()) * std::min(strength, 1.0) * 0.03);
    return bandWithWidth(style, width, cardRect, radius);
}

std::optional<CardBorder::Band> CardBorder::bandWithWidth(CardBorderStyle style, double w, const Rect& cardRect,
                                                          double r) {
    if (w < 0.5) return std::nullopt;
    Band band;
    band.style = style;
    band.width = w;
    band.cardRect = cardRect;
    band.radius = r;
    band.outerRect = grown(cardRect, w);
    band.outerRadius = r + w;

    double hair = std::clamp(w * 0.09, 0.75, 2.0);
    Stroke body{grown(cardRect, w / 2), r + w / 2, w, {}, std::nullopt};
    Stroke hairline{grown(cardRect, hair / 2), r + hair / 2, hair, {}, std::nullopt};
    switch (style) {
    case CardBorderStyle::glass:
        body.color = white(0.82);
        body.endColor = white(0.52);
        hairline.color = black(0.18);
        band.strokes = {body, hairline};
        break;
    case CardBorderStyle::glassDark: {
        body.color = black(0.58);
        body.endColor = black(0.8);
        double t = std::clamp(w * 0.14, 1.0, 3.0);
        double d = w - t + t / 2;
        Stroke sheen{grown(cardRect, d), r + d, t, white(0.26), white(0.04), {0, 1}, {1, 0}};
        hairline.color = white(0.12);
        band.strokes = {body, sheen, hairline};
        break;
    }
    case CardBorderStyle::liquid:
        break;
    }
    return band;
}

void CardBorder::draw(const Band& band, QPainter& painter) {
    for (const Stroke& stroke : band.strokes) {
        painter.save();
        painter.setRenderHint(QPainter::Antialiasing, true);
        QPainterPath path = roundedPath(stroke.rect, stroke.radius);
        if (stroke.endColor) {
            QPainterPathStroker stroker;
            stroker.setWidth(stroke.width);
            stroker.setJoinStyle(Qt::MiterJoin);
            QPainterPath outline = stroker.createStroke(path).simplified();
            QLinearGradient ramp(pointIn(band.outerRect, stroke.rampStart), pointIn(band.outerRect, stroke.rampEnd));
            ramp.setColorAt(0, toQColor(stroke.color));
            ramp.setColorAt(1, toQColor(*stroke.endColor));
            ramp.setSpread(QGradient::PadSpread);
            painter.fillPath(outline, QBrush(ramp));
        } else {
            QPen pen(toQColor(stroke.color), stroke.width);
            pen.setJoinStyle(Qt::MiterJoin);
            painter.setPen(pen);
            painter.setBrush(Qt::NoBrush);
            painter.drawPath(path);
        }
        painter.restore();
    }
}

QImage CardBorder::rasterizedImage(const Band& band, const QImage& background, const Rect& backgroundRect,
                                   double scale, LiquidGlass* liquid) {
    if (band.style == CardBorderStyle::liquid) {
        LiquidGlass scratch;
        LiquidGlass& renderer = liquid ? *liquid : scratch;
        return renderer.image(band, background, backgroundRect, scale).value_or(QImage());
    }
    Rect target = rasterTarget(band);
    int w = std::max(1, int(std::lround(target.width() * scale)));
    int h = std::max(1, int(std::lround(target.height() * scale)));
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    if (image.isNull()) return {};
    image.fill(Qt::transparent);
    QPainter painter(&image);
    // y upward in points, the target's lower-left corner at the image's bottom-left pixel.
    painter.translate(0, h);
    painter.scale(scale, -scale);
    painter.translate(-target.minX(), -target.minY());
    draw(band, painter);
    painter.end();
    return image;
}

QImage CardBorder::thumbnail(CardBorderStyle style, double size, double scale) {
    int side = std::max(2, int(std::lround(size * scale)));
    QImage stripes(side, side, QImage::Format_ARGB32_Premultiplied);
    stripes.fill(Qt::transparent);
    {
        QPainter p(&stripes);
        p.setRenderHint(QPainter::Antialiasing, true);
        QLinearGradient wash(0, 0, side, side);
        wash.setColorAt(0, QColor::fromRgbF(0.42f, 0.36f, 0.86f));
        wash.setColorAt(1, QColor::fromRgbF(0.93f, 0.36f, 0.55f));
        p.fillRect(stripes.rect(), wash);
        double stripe = side * 0.1;
        p.setPen(Qt::NoPen);
        p.setBrush(QColor::fromRgbF(1, 1, 1, 0.16f));
        // 45° stripes: each a band `stripe` wide, measured across the stripe, with equal gaps.
        double step = stripe * 2 * std::sqrt(2.0);
        for (double offset = -side; offset < 2.0 * side; offset += step) {
            QPolygonF band;
            double across = stripe * std::sqrt(2.0);
            band << QPointF(offset, 0) << QPointF(offset + across, 0) << QPointF(offset + across - side, side)
                 << QPointF(offset - side, side);
            p.drawPolygon(band);
        }
    }
    QImage image = stripes.copy();
    // Everything below is in points with y upward on a canvas `size` square.
    Rect card{0.34 * size, size - 0.32 * size - size, size, size};
    double radius = 0.3 * size;
    QPainter p(&image);
    p.setRenderHint(QPainter::Antialiasing, true);
    p.translate(0, side);
    p.scale(scale, -scale);
    QLinearGradient fill(card.minX(), card.maxY(), card.maxX(), card.minY());
    fill.setColorAt(0, QColor::fromRgbF(0.99f, 0.99f, 1.0f));
    fill.setColorAt(1, QColor::fromRgbF(0.78f, 0.8f, 0.86f));
    p.fillPath(roundedPath(card, radius), fill);
    auto band = bandWithWidth(style, 0.13 * size, card, radius);
    if (!band) return image;
    if (style == CardBorderStyle::liquid) {
        LiquidGlass liquid;
        auto lens = liquid.image(*band, stripes, Rect{0, 0, size, size}, scale);
        if (lens) {
            Rect t = rasterTarget(*band);
            p.resetTransform();
            p.drawImage(QPointF(t.minX() * scale, (size - t.maxY()) * scale), *lens);
            return image;
        }
    }
    draw(*band, p);
    return image;
}

}  // namespace halvane
