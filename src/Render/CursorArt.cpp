#include "Render/CursorArt.h"

#include "Render/QtColor.h"
#include "Render/RasterKernels.h"
#include "Render/XcursorTheme.h"

#include <QPainter>
#include <QPainterPath>
#include <QRadialGradient>

namespace halvane {
namespace {

std::optional<QImage> transparentImage(int w, int h) {
    QImage image(w, h, QImage::Format_ARGB32_Premultiplied);
    if (image.isNull()) return std::nullopt;
    image.fill(Qt::transparent);
    return image;
}

std::optional<QImage> radialDisc(int side, double radius, const QColor& color, double solidUntil) {
    auto image = transparentImage(side, side);
    if (!image) return std::nullopt;
    QRadialGradient gradient(side / 2.0, side / 2.0, radius);
    QColor clear = color;
    clear.setAlphaF(0);
    gradient.setColorAt(0, color);
    gradient.setColorAt(solidUntil, color);
    gradient.setColorAt(1, clear);
    QPainter painter(&*image);
    painter.fillRect(image->rect(), gradient);
    return image;
}

// ---- vector pointers, designed on a 32-unit grid with y down

QPainterPath polygonPath(std::initializer_list<QPointF> points) {
    QPainterPath path;
    path.addPolygon(QPolygonF(QList<QPointF>(points)));
    path.closeSubpath();
    return path;
}

QPainterPath arrowPath() {
    return polygonPath({{4, 2}, {4, 25}, {9.5, 19.8}, {13.2, 28.4}, {17, 26.8}, {13.4, 18.4}, {21, 18.4}});
}

// A filled outline in the pointer manner: a white rim around a black body, or the reverse.
void fillOutlined(QPainter& p, const QPainterPath& path, const QColor& body, const QColor& rim) {
    p.strokePath(path, QPen(rim, 2.4, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    p.fillPath(path, body);
}

void strokeOutlined(QPainter& p, const QPainterPath& path, double width) {
    p.strokePath(path, QPen(Qt::white, width + 2.4, Qt::SolidLine, Qt::FlatCap, Qt::MiterJoin));
    p.strokePath(path, QPen(Qt::black, width, Qt::SolidLine, Qt::FlatCap, Qt::MiterJoin));
}

QPainterPath segments(std::initializer_list<QLineF> lines) {
    QPainterPath path;
    for (const QLineF& line : lines) {
        path.moveTo(line.p1());
        path.lineTo(line.p2());
    }
    return path;
}

QPainterPath doubleArrowPath() {
    // Horizontal, centred on (16, 16).
    return polygonPath({{3, 16}, {9, 10}, {9, 14}, {23, 14}, {23, 10}, {29, 16}, {23, 22}, {23, 18}, {9, 18}, {9, 22}});
}

QPainterPath roundedRect(double x, double y, double w, double h, double r) {
    QPainterPath path;
    path.addRoundedRect(QRectF(x, y, w, h), r, r);
    return path;
}

QPainterPath handPath(bool pointing, bool open) {
    QPainterPath hand = roundedRect(8, 14, 17, 15, 5);
    if (pointing) {
        hand = hand.united(roundedRect(11, 2, 5, 16, 2.5));
        for (double x : {16.0, 20.0}) hand = hand.united(roundedRect(x, 11, 4.5, 8, 2.2));
        hand = hand.united(roundedRect(4, 15, 8, 4.5, 2.2));  // thumb
    } else if (open) {
        const double tops[] = {5, 3, 4, 7};
        for (int i = 0; i < 4; ++i) hand = hand.united(roundedRect(8.5 + i * 4.2, tops[i], 4, 14, 2));
        hand = hand.united(roundedRect(3, 16, 9, 4.5, 2.2));
    } else {
        for (int i = 0; i < 4; ++i) hand = hand.united(roundedRect(8.5 + i * 4.2, 10, 4, 7, 2));
        hand = hand.united(roundedRect(5, 15, 7, 4.5, 2.2));
    }
    return hand;
}

// A small badge at the lower right of an arrow: a menu or a no-entry sign.
void drawBadge(QPainter& p, CursorShape shape) {
    if (shape == CursorShape::contextualMenu) {
        QPainterPath menu = roundedRect(17, 17, 12, 12, 1.5);
        fillOutlined(p, menu, Qt::white, Qt::black);
        for (double y : {20.5, 23.0, 25.5}) p.fillRect(QRectF(19, y, 8, 1.1), Qt::black);
    } else {
        const QPointF centre(23, 23);
        p.setPen(Qt::NoPen);
        p.setBrush(Qt::white);
        p.drawEllipse(centre, 7.5, 7.5);
        QPen red(QColor(220, 30, 30), 2.2);
        p.setPen(red);
        p.setBrush(Qt::NoBrush);
        p.drawEllipse(centre, 5.4, 5.4);
        p.drawLine(centre + QPointF(-3.8, -3.8), centre + QPointF(3.8, 3.8));
    }
}

QPointF vectorHotspot(CursorShape shape) {
    switch (shape) {
    case CursorShape::arrow:
    case CursorShape::contextualMenu:
    case CursorShape::operationNotAllowed: return {4, 2};
    case CursorShape::pointingHand: return {13.5, 2.5};
    default: return {16, 16};
    }
}

void drawVector(QPainter& p, CursorShape shape) {
    switch (shape) {
    case CursorShape::arrow: fillOutlined(p, arrowPath(), Qt::black, Qt::white); break;
    case CursorShape::contextualMenu:
    case CursorShape::operationNotAllowed:
        fillOutlined(p, arrowPath(), Qt::black, Qt::white);
        drawBadge(p, shape);
        break;
    case CursorShape::iBeam:
        strokeOutlined(p, segments({{12, 5, 20, 5}, {16, 5, 16, 27}, {12, 27, 20, 27}}), 1.8);
        break;
    case CursorShape::crosshair: strokeOutlined(p, segments({{16, 3, 16, 29}, {3, 16, 29, 16}}), 1.6); break;
    case CursorShape::resizeLeftRight: fillOutlined(p, doubleArrowPath(), Qt::black, Qt::white); break;
    case CursorShape::resizeUpDown:
        fillOutlined(p, QTransform().translate(16, 16).rotate(90).translate(-16, -16).map(doubleArrowPath()), Qt::black,
                     Qt::white);
        break;
    case CursorShape::pointingHand: fillOutlined(p, handPath(true, false), Qt::white, Qt::black); break;
    case CursorShape::openHand: fillOutlined(p, handPath(false, true), Qt::white, Qt::black); break;
    case CursorShape::closedHand: fillOutlined(p, handPath(false, false), Qt::white, Qt::black); break;
    }
}

}  // namespace

const std::optional<CursorArt::Cursor>& CursorArt::dot() {
    static const std::optional<Cursor> art = [] () -> std::optional<Cursor> {
        auto image = transparentImage(96, 96);
        if (!image) return std::nullopt;
        QPainterPath outer;
        outer.addEllipse(QRectF(14, 14, 68, 68));
        // The shadow falls 3 pixels below the disc.
        drawPathShadow(*image, outer, {QColor::fromRgbF(0, 0, 0, 0.45), 8, QPointF(0, 3)});
        QPainter painter(&*image);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.fillPath(outer, Qt::white);
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor::fromRgbF(0, 0, 0, 0.85));
        painter.drawEllipse(QRectF(24, 24, 48, 48));
        painter.end();
        return Cursor{*image, {0.5, 0.5}, {22, 22}};
    }();
    return art;
}

const std::optional<QImage>& CursorArt::rippleRing() {
    static const std::optional<QImage> art = [] {
        auto image = transparentImage(256, 256);
        if (!image) return image;
        QPainter painter(&*image);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(toQColor(effectBlue(), 0.35), 26));
        painter.drawEllipse(QRectF(32, 32, 192, 192));
        painter.setPen(QPen(toQColor(effectBlue(), 1), 12));
        painter.drawEllipse(QRectF(32, 32, 192, 192));
        return image;
    }();
    return art;
}

const std::optional<QImage>& CursorArt::circleDisc() {
    static const std::optional<QImage> art = radialDisc(256, 96, toQColor(effectBlue(), 1), 0.72);
    return art;
}

const std::optional<QImage>& CursorArt::spotlightDisc() {
    static const std::optional<QImage> art = radialDisc(512, 256, QColor(0, 0, 0, 255), 0.62);
    return art;
}

std::vector<std::string> CursorArt::themeNames(CursorShape shape) {
    switch (shape) {
    case CursorShape::arrow: return {"left_ptr", "default", "arrow"};
    case CursorShape::iBeam: return {"xterm", "text", "ibeam"};
    case CursorShape::pointingHand: return {"hand2", "pointer", "pointing_hand"};
    case CursorShape::closedHand: return {"grabbing", "closedhand", "dnd-none"};
    case CursorShape::openHand: return {"openhand", "grab", "hand1"};
    case CursorShape::crosshair: return {"crosshair", "cross", "tcross"};
    case CursorShape::resizeLeftRight: return {"sb_h_double_arrow", "ew-resize", "col-resize", "h_double_arrow"};
    case CursorShape::resizeUpDown: return {"sb_v_double_arrow", "ns-resize", "row-resize", "v_double_arrow"};
    case CursorShape::contextualMenu: return {"context-menu"};
    case CursorShape::operationNotAllowed: return {"not-allowed", "crossed_circle", "forbidden"};
    }
    return {};
}

std::optional<CursorArt::Cursor> CursorArt::themeCursor(CursorShape shape, const char* theme, int minimumPixels) {
    auto loaded = loadLargestXcursor(themeNames(shape), theme);
    if (!loaded || std::max(loaded->image.width(), loaded->image.height()) < minimumPixels) return std::nullopt;
    const double w = loaded->image.width(), h = loaded->image.height();
    const double pointsPerPixel = nominalPointSize / loaded->nominalSize;
    return Cursor{loaded->image, {loaded->hotX / w, loaded->hotY / h}, {w * pointsPerPixel, h * pointsPerPixel}};
}

CursorArt::Cursor CursorArt::vectorCursor(CursorShape shape) {
    constexpr double unit = vectorPixels / 32.0;
    QImage image(vectorPixels, vectorPixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(unit, unit);
    drawVector(painter, shape);
    painter.end();
    // A soft shadow lifts the pointer off light backgrounds, as desktop pointers do.
    QImage shadowed(image.size(), image.format());
    shadowed.fill(Qt::transparent);
    drawImageShadow(shadowed, image, QPointF(0, 0), {QColor::fromRgbF(0, 0, 0, 0.35), 1.5 * unit, QPointF(0, 0.5 * unit)});
    QPainter(&shadowed).drawImage(0, 0, image);
    const QPointF hot = vectorHotspot(shape);
    const double points = nominalPointSize;
    return {shadowed, {hot.x() / 32, hot.y() / 32}, {points, points}};
}

const std::map<CursorShape, CursorArt::Cursor>& CursorArt::systemCursors() {
    static const std::map<CursorShape, Cursor> table = [] {
        std::map<CursorShape, Cursor> cursors;
        for (size_t i = 0; i < enumNames(CursorShape{}).size(); ++i) {
            auto shape = static_cast<CursorShape>(i);
            auto themed = themeCursor(shape);
            cursors.emplace(shape, themed ? *themed : vectorCursor(shape));
        }
        return cursors;
    }();
    return table;
}

std::optional<CursorArt::Cursor> CursorArt::arrow() {
    const auto& table = systemCursors();
    auto it = table.find(CursorShape::arrow);
    if (it == table.end()) return std::nullopt;
    return it->second;
}

std::optional<CursorArt::Cursor> CursorArt::cursor(CursorStyle style, CursorShape shape) {
    if (style == CursorStyle::dot) return dot();
    const auto& table = systemCursors();
    auto it = table.find(shape);
    if (it != table.end()) return it->second;
    return arrow();
}

}  // namespace halvane
