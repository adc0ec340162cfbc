#pragma once

#include "Model/EditTypes.h"
#include "Render/BackgroundLibrary.h"
#include "Support/Geometry.h"

#include <QImage>
#include <QPainter>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

namespace halvane {

// Draws a CanvasBackground into a bitmap, and keeps the last one: a background is drawn once per
// size and key, not per frame. Export, preview and each image document own one each, so they
// never evict each other's entry. `image` may be called from any thread.
class BackgroundRenderer {
public:
    // Where a downloadable wallpaper's pictures are on disk; supplied by the owner, who knows the
    // download cache. Absent for an id that is not a downloadable wallpaper.
    struct RemoteWallpaperFiles {
        std::optional<std::filesystem::path> cachedOriginal;
        std::optional<std::filesystem::path> thumbnail;
    };
    using RemoteWallpaperLookup = std::function<RemoteWallpaperFiles(const std::string& id)>;

    explicit BackgroundRenderer(RemoteWallpaperLookup remoteWallpaperFiles = {});

    // The background at `size` (rounded, at least 2 × 2), blurred by `blur` (0 ... 1, wallpapers and
    // images only). None when the size isn't finite or the bitmap can't be made.
    std::optional<QImage> image(const CanvasBackground& background, Size size,
                                const std::optional<std::filesystem::path>& projectURL, double blur);
    // Forgets the entry; a render under way when this is called keeps its result to itself.
    void purge();

    // What a request is cached under: the background's key, "|", W "x" H, "|b", the blur step.
    std::string cacheKey(const CanvasBackground& background, int width, int height,
                         const std::optional<std::filesystem::path>& projectURL, double blur) const;
    // The blur in twenty steps of 0.05 for wallpapers and images; 0 for gradients and colours.
    static double blurKey(CanvasBackground::Kind kind, double blur);

    // The file decoded with its orientation applied, scaled down so that its longer side is at most
    // `longestSide` (never under 32); never scaled up.
    static std::optional<QImage> decodeDownsampled(const std::filesystem::path& file, double longestSide);

    // Drawing without the cache, into the painter's rectangle `rect` (top-left coordinates).
    void draw(const CanvasBackground& background, QPainter& painter, const QRectF& rect,
              const std::optional<std::filesystem::path>& projectURL) const;
    // An unknown id draws the first numbered preset.
    static void drawGradient(std::string_view id, QPainter& painter, const QRectF& rect);
    static void drawGradient(const GradientPreset& preset, QPainter& painter, const QRectF& rect);
    // Fills with the plain colour, then lays the picture over it aspect-filled, cutting the overflow.
    static void drawBitmap(const std::optional<std::filesystem::path>& file, QPainter& painter, const QRectF& rect);

    // What shows where a picture is missing or broken.
    static constexpr std::string_view fallbackHex = "#1A1D24";
    // The blur radius (a sigma) at full amount, as a fraction of the shorter side.
    static constexpr double fullBlurFraction = 0.045;
    // Pictures are decoded at this multiple of the longer side of the canvas.
    static constexpr double decodeOversize = 1.6;

    uint64_t cacheGeneration() const;

private:
    // The file a wallpaper id draws, and the part of the cache key that names it.
    struct WallpaperSource {
        std::optional<std::filesystem::path> file;
        std::string keyPart;
        bool isMesh = false;
    };
    WallpaperSource resolveWallpaper(const std::string& id) const;
    std::optional<std::filesystem::path> imageFile(const CanvasBackground& background,
                                                   const std::optional<std::filesystem::path>& projectURL) const;
    std::string backgroundKey(const CanvasBackground& background, const std::optional<std::filesystem::path>& projectURL) const;

    RemoteWallpaperLookup remoteWallpaperFiles_;
    mutable std::mutex lock_;
    std::optional<std::string> cachedKey_;
    std::optional<QImage> cachedImage_;
    uint64_t cacheGeneration_ = 0;
};

}  // namespace halvane
