#include "Render/ShadowProfile.h"

#include "Render/RasterKernels.h"

#include <QPainter>

#include <algorithm>

namespace halvane {
namespace {

ShadowLook layerShadow(const ShadowProfile::Layer& layer, double unit) {
    // Offsets are told with y up: a negative one falls downward, positive y on the image.
    return {QColor::fromRgbF(0, 0, 0, float(layer.alpha)), layer.blurFraction * unit,
            QPointF(0, layer.offsetFraction * unit)};
}

}  // namespace

ShadowProfile::ShadowProfile(double strength) {
    const double s = std::clamp(strength, 0.0, 1.0);
    layers = {{0.016 * s, 0.075 * s, 0.42 * s}, {0.006 * s, 0.028 * s, 0.30 * s}, {0.003 * s, 0.014 * s, 0.22 * s}};
}

void ShadowProfile::draw(QImage& target, const QPainterPath& path, double unit) const {
    QPainterPath winding = path;
    winding.setFillRule(Qt::WindingFill);
    for (const auto& layer : layers) {
        drawPathShadow(target, winding, layerShadow(layer, unit));
        QPainter painter(&target);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.fillPath(winding, Qt::black);
    }
}

void ShadowProfile::drawShadowsOnly(QImage& target, const QPainterPath& path, double unit) const {
    for (const auto& layer : layers)
        if (layer.alpha > 0.001) drawPathShadow(target, path, layerShadow(layer, unit));
}

}  // namespace halvane
