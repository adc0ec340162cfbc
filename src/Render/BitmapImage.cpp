#include "Render/BitmapImage.h"

#include <memory>

namespace halvane {

namespace {

void releaseBuffer(void* info) { delete static_cast<std::shared_ptr<const std::vector<std::uint8_t>>*>(info); }

}  // namespace

QImage imageOf(const Bitmap& bitmap) {
    if (bitmap.isNull()) return {};
    // The image holds its own reference to the buffer until Qt lets go of it.
    auto* keeper = new std::shared_ptr<const std::vector<std::uint8_t>>(bitmap.pixels);
    return QImage(bitmap.pixels->data(), bitmap.width, bitmap.height, bitmap.bytesPerRow,
                  QImage::Format_ARGB32_Premultiplied, releaseBuffer, keeper);
}

Bitmap bitmapOf(const QImage& image) {
    if (image.isNull()) return {};
    const QImage source = image.format() == QImage::Format_ARGB32_Premultiplied
                              ? image
                              : image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    const int bytesPerRow = source.width() * 4;
    auto pixels = std::make_shared<std::vector<std::uint8_t>>(static_cast<size_t>(bytesPerRow) * source.height());
    for (int y = 0; y < source.height(); ++y)
        std::copy_n(source.constScanLine(y), bytesPerRow, pixels->data() + static_cast<size_t>(y) * bytesPerRow);
    return {source.width(), source.height(), bytesPerRow, std::move(pixels)};
}

}  // namespace halvane
