#include "Media/ThumbnailGenerator.h"

#include "Media/FrameSequence.h"
#include "Support/HalvaneError.h"

#include <algorithm>
#include <cmath>

namespace halvane {

double ThumbnailGenerator::posterTime(double duration) {
    return std::max(std::min(duration / 2, 0.5), 0.0);
}

std::optional<QImage> ThumbnailGenerator::posterImage(const std::filesystem::path& movie,
                                                      double time) {
    try {
        Size size = FrameSequence(movie).streamSize();
        double scale = std::min({1.0, maximumSide / size.width, maximumSide / size.height});
        Size fitted{std::max(1.0, std::round(size.width * scale)),
                    std::max(1.0, std::round(size.height * scale))};
        FrameSequence frames(movie, time, time + 1, fitted);
        const QImage* image = frames.image(time);
        if (!image) image = frames.image(time + 1);  // the movie starts later: its first frame
        if (!image) return std::nullopt;
        return image->copy();
    } catch (const HalvaneError&) {
        return std::nullopt;
    }
}

bool ThumbnailGenerator::generate(const std::filesystem::path& package, double duration) {
    auto image = posterImage(package / "screen.mov", posterTime(duration));
    if (!image) return false;
    return image->save(QString::fromStdString((package / "thumbnail.png").string()), "PNG");
}

}  // namespace halvane
