#include "Render/BackgroundRenderer.h"

#include "Render/BackgroundLibrary.h"
#include "Render/MeshWallpaper.h"
#include "Render/QtColor.h"
#include "Render/RasterKernels.h"

#include <QImageReader>
#include <QLinearGradient>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <numbers>
#include <system_error>

namespace halvane {
namespace {

// A double as the key has always printed it: shortest round-trip digits, with ".0" when whole.
std::string keyNumber(double value) {
    char buffer[64];
    auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
    std::string text(buffer, error == std::errc() ? end : buffer);
    if (text.find_first_of(".en") == std::string::npos) text += ".0";
    return text;
}

// ":" and the modification time in whole seconds since 1970, or nothing if it can't be read.
std::string stamp(const std::optional<std::filesystem::path>& file) {
    if (!file) return {};
    std::error_code error;
    const auto time = std::filesystem::last_write_time(*file, error);
    if (error) return {};
    const auto system = std::filesystem::file_time_type::clock::to_sys(time);
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(system.time_since_epoch()).count();
    return ":" + std::to_string(seconds);
}

bool fileExists(const std::filesystem::path& path) {
    std::error_code error;
    return std::filesystem::exists(path, error);
}

}  // namespace

BackgroundRenderer::BackgroundRenderer(RemoteWallpaperLookup remoteWallpaperFiles)
    : remoteWallpaperFiles_(std::move(remoteWallpaperFiles)) {}

double BackgroundRenderer::blurKey(CanvasBackground::Kind kind, double blur) {
    const bool blurs = kind == CanvasBackground::Kind::image || kind == CanvasBackground::Kind::wallpaper;
    if (!blurs || !(blur > 0)) return 0;
    return std::round(std::min(blur, 1.0) * 20) / 20;
}

BackgroundRenderer::WallpaperSource BackgroundRenderer::resolveWallpaper(const std::string& id) const {
    if (BackgroundLibrary::remoteWallpaper(id)) {
        RemoteWallpaperFiles files;
        if (remoteWallpaperFiles_) files = remoteWallpaperFiles_(id);
        std::optional<std::filesystem::path> file;
        if (files.cachedOriginal && fileExists(*files.cachedOriginal)) file = files.cachedOriginal;
        else if (files.thumbnail && fileExists(*files.thumbnail)) file = files.thumbnail;
        return {file, "rw:" + id + ":" + (file ? file->string() : std::string("missing")) + stamp(file), false};
    }
    if (BackgroundLibrary::wallpaperPreset(id)) return {std::nullopt, "w:" + id, true};
    auto file = BackgroundLibrary::wallpaperURL(id);
    return {file, "w:" + (file ? file->string() : id) + stamp(file), false};
}

std::optional<std::filesystem::path> BackgroundRenderer::imageFile(
    const CanvasBackground& background, const std::optional<std::filesystem::path>& projectURL) const {
    if (!projectURL) return std::nullopt;
    std::error_code error;
    auto joined = std::filesystem::absolute(*projectURL / background.value, error);
    return error ? *projectURL / background.value : joined;
}

std::string BackgroundRenderer::backgroundKey(const CanvasBackground& background,
                                              const std::optional<std::filesystem::path>& projectURL) const {
    switch (background.kind) {
    case CanvasBackground::Kind::gradient: return "g:" + background.value;
    case CanvasBackground::Kind::solid: return "s:" + background.value;
    case CanvasBackground::Kind::image: {
        auto file = imageFile(background, projectURL);
        return "i:" + (file ? file->string() : background.value) + stamp(file);
    }
    case CanvasBackground::Kind::wallpaper: return resolveWallpaper(background.value).keyPart;
    }
    return {};
}

std::string BackgroundRenderer::cacheKey(const CanvasBackground& background, int width, int height,
                                         const std::optional<std::filesystem::path>& projectURL, double blur) const {
    return backgroundKey(background, projectURL) + "|" + std::to_string(width) + "x" + std::to_string(height) + "|b" +
           keyNumber(blurKey(background.kind, blur));
}

std::optional<QImage> BackgroundRenderer::image(const CanvasBackground& background, Size size,
                                                const std::optional<std::filesystem::path>& projectURL, double blur) {
    if (!std::isfinite(size.width) || !std::isfinite(size.height)) return std::nullopt;
    const int width = std::max(static_cast<int>(roundHalfAway(size.width)), 2);
    const int height = std::max(static_cast<int>(roundHalfAway(size.height)), 2);
    const double amount = blurKey(background.kind, blur);
    const std::string key = cacheKey(background, width, height, projectURL, blur);

    uint64_t generation;
    {
        std::lock_guard guard(lock_);
        if (cachedKey_ == key && cachedImage_) return cachedImage_;
        generation = ++cacheGeneration_;
        cachedKey_.reset();
        cachedImage_.reset();
    }

    QImage bitmap(width, height, QImage::Format_ARGB32_Premultiplied);
    if (bitmap.isNull()) return std::nullopt;
    bitmap.fill(Qt::transparent);
    {
        QPainter painter(&bitmap);
        draw(background, painter, QRectF(0, 0, width, height), projectURL);
    }
    if (amount > 0.001)
        gaussianBlur(bitmap, sigmaForFilterRadius(amount * fullBlurFraction * std::min(width, height)));

    std::lock_guard guard(lock_);
    if (cacheGeneration_ == generation) {
        cachedKey_ = key;
        cachedImage_ = bitmap;
    }
    return bitmap;
}

void BackgroundRenderer::purge() {
    std::lock_guard guard(lock_);
    ++cacheGeneration_;
    cachedKey_.reset();
    cachedImage_.reset();
}

uint64_t BackgroundRenderer::cacheGeneration() const {
    std::lock_guard guard(lock_);
    return cacheGeneration_;
}

void BackgroundRenderer::draw(const CanvasBackground& background, QPainter& painter, const QRectF& rect,
                              const std::optional<std::filesystem::path>& projectURL) const {
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    switch (background.kind) {
    case CanvasBackground::Kind::solid: painter.fillRect(rect, hexColor(background.value)); break;
    case CanvasBackground::Kind::gradient: drawGradient(background.value, painter, rect); break;
    case CanvasBackground::Kind::image: drawBitmap(imageFile(background, projectURL), painter, rect); break;
    case CanvasBackground::Kind::wallpaper: {
        const auto source = resolveWallpaper(background.value);
        if (source.isMesh) MeshWallpaper::draw(*BackgroundLibrary::wallpaperPreset(background.value), painter, rect);
        else drawBitmap(source.file, painter, rect);
        break;
    }
    }
    painter.restore();
}

void BackgroundRenderer::drawGradient(std::string_view id, QPainter& painter, const QRectF& rect) {
    drawGradient(BackgroundLibrary::gradient(id).value_or(*BackgroundLibrary::gradient(BackgroundLibrary::defaultGradientID)),
                 painter, rect);
}

void BackgroundRenderer::drawGradient(const GradientPreset& preset, QPainter& painter, const QRectF& rect) {
    const double phi = preset.angle * std::numbers::pi / 180;
    const double w = rect.width(), h = rect.height();
    const double reach = (w / 2) * std::abs(std::cos(phi)) + (h / 2) * std::abs(std::sin(phi));
    // The angle is measured with y up; the painter's y points down.
    const QPointF direction(std::cos(phi), -std::sin(phi));
    const QPointF centre = rect.center();
    QLinearGradient gradient(centre - reach * direction, centre + reach * direction);
    const size_t n = preset.hexColors.size();
    for (size_t k = 0; k < n; ++k) {
        double location = n > 1 ? static_cast<double>(k) / (n - 1) : 0;
        if (preset.locations && k < preset.locations->size()) location = (*preset.locations)[k];
        gradient.setColorAt(std::clamp(location, 0.0, 1.0), hexColor(preset.hexColors[k]));
    }
    gradient.setSpread(QGradient::PadSpread);
    painter.fillRect(rect, gradient);
}

void BackgroundRenderer::drawBitmap(const std::optional<std::filesystem::path>& file, QPainter& painter,
                                    const QRectF& rect) {
    painter.fillRect(rect, hexColor(fallbackHex));
    if (!file) return;
    const auto picture = decodeDownsampled(*file, std::max(rect.width(), rect.height()) * decodeOversize);
    if (!picture) return;
    const double a = picture->width() / std::max(static_cast<double>(picture->height()), 1.0);
    const double w = rect.width(), h = rect.height();
    QRectF target = w / h < a ? QRectF(rect.left() + (w - a * h) / 2, rect.top(), a * h, h)
                              : QRectF(rect.left(), rect.top() + (h - w / a) / 2, w, w / a);
    painter.save();
    painter.setClipRect(rect, Qt::IntersectClip);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(target, *picture);
    painter.restore();
}

std::optional<QImage> BackgroundRenderer::decodeDownsampled(const std::filesystem::path& file, double longestSide) {
    QImageReader reader(QString::fromStdString(file.string()));
    reader.setAutoTransform(true);
    const QSize full = reader.size();
    const double limit = std::max(longestSide, 32.0);
    if (full.isValid() && std::max(full.width(), full.height()) > limit) {
        const double k = limit / std::max(full.width(), full.height());
        reader.setScaledSize(QSize(std::max(1, static_cast<int>(std::lround(full.width() * k))),
                                   std::max(1, static_cast<int>(std::lround(full.height() * k)))));
    }
    QImage image = reader.read();
    if (image.isNull()) return std::nullopt;
    return image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

}  // namespace halvane
