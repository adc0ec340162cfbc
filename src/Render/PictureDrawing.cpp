#include "Render/PictureDrawing.h"

#include "Render/BitmapImage.h"

#include <QPainter>

namespace halvane {

void enterTopDown(QPainter& painter, const Rect& r) {
    const Rect s = r.standardized();
    painter.translate(s.minX(), s.maxY());
    painter.scale(1, -1);
}

void paintPicture(QPainter& painter, const ImageAnnotation& picture) {
    const Rect r = picture.rect.standardized();
    if (!picture.asset || r.width() < 1 || r.height() < 1) return;
    const QImage image = imageOf(picture.asset->image());
    if (image.isNull()) return;
    painter.save();
    painter.setRenderHint(QPainter::SmoothPixmapTransform, true);
    if (picture.rotation == 0) {
        enterTopDown(painter, r);
        painter.drawImage(QRectF(0, 0, r.width(), r.height()), image);
    } else {
        // Positive rotation turns clockwise on screen, which is negative in y-up space.
        painter.translate(r.midX(), r.midY());
        painter.rotate(-picture.rotation);
        painter.scale(1, -1);
        painter.drawImage(QRectF(-r.width() / 2, -r.height() / 2, r.width(), r.height()), image);
    }
    painter.restore();
}

}  // namespace halvane
