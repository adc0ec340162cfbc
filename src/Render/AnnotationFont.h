#pragma once

#include "Model/TextMeasurer.h"
#include "Support/Geometry.h"

#include <QFont>
#include <QRectF>
#include <QString>

class QPainter;

namespace halvane {

// The system font at a fractional pixel size. Qt fonts take whole pixel sizes, so text is laid out
// at the nearest whole size and drawn scaled by `stretch`; measuring and drawing share the rule and
// so agree whatever the device's resolution.
struct AnnotationFont {
    QFont font;
    double stretch = 1;

    AnnotationFont(double pixelSize, QFont::Weight weight);

    // Line fragments of `text` wrapped by words at `wrapWidth`, in the requested pixel size.
    Size measure(const QString& text, double wrapWidth) const;
    // Draws into `box` (top-left coordinates of the painter's current space) with Qt alignment flags.
    void draw(QPainter& painter, const QRectF& box, int flags, const QString& text) const;
};

// The measurer the model's text boxes use: semibold system font.
TextMeasurer annotationTextMeasurer();

}  // namespace halvane
