#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halvane {

struct GradientPreset {
    std::string id;
    std::string name;
    std::vector<std::string> hexColors;
    double angle = 0;  // degrees, bottom-left origin: 90 runs upward
    std::optional<std::vector<double>> locations;
    friend bool operator==(const GradientPreset&, const GradientPreset&) = default;
};

struct WallpaperPreset {
    struct Glow {
        std::string hex;
        double x = 0;       // unit position from the left
        double y = 0;       // unit position from the top
        double radius = 0;  // fraction of the longer side
        double alpha = 0;
        friend bool operator==(const Glow&, const Glow&) = default;
    };
    std::string id;
    std::string name;
    std::string baseTop;
    std::string baseBottom;
    std::vector<Glow> glows;
    double vignette = 0;
    friend bool operator==(const WallpaperPreset&, const WallpaperPreset&) = default;
};

struct RemoteWallpaperPreset {
    std::string id;
    std::string name;
    friend bool operator==(const RemoteWallpaperPreset&, const RemoteWallpaperPreset&) = default;
};

struct RemoteWallpaperGroup {
    std::string name;
    std::vector<RemoteWallpaperPreset> presets;
    friend bool operator==(const RemoteWallpaperGroup&, const RemoteWallpaperGroup&) = default;
};

// A picture the desktop itself offers as a wallpaper.
struct WallpaperItem {
    std::string fileName;
    std::filesystem::path url;
    friend bool operator==(const WallpaperItem&, const WallpaperItem&) = default;
};

// The catalogues behind the canvas: gradients, mesh wallpapers, the downloadable wallpapers and
// the desktop's own pictures. The tables are compiled in and never change.
class BackgroundLibrary {
public:
    static const std::vector<GradientPreset>& numberedGradients();  // "shots-gradient-1" ... 21
    static const std::vector<GradientPreset>& namedGradients();     // "aurora" ... 15
    static constexpr std::string_view defaultGradientID = "shots-gradient-1";
    // Numbered presets first, then named, by exact id.
    static std::optional<GradientPreset> gradient(std::string_view id);

    static const std::vector<WallpaperPreset>& wallpaperPresets();  // 18 mesh wallpapers
    static std::optional<WallpaperPreset> wallpaperPreset(std::string_view id);

    static const std::vector<RemoteWallpaperGroup>& remoteWallpaperGroups();
    static const std::vector<RemoteWallpaperPreset>& remoteWallpapers();
    static std::optional<RemoteWallpaperPreset> remoteWallpaper(std::string_view id);

    // The folders the desktop keeps its wallpapers in, searched in this order.
    static const std::vector<std::filesystem::path>& systemWallpaperFolders();
    // The pictures in those folders, computed once: entries of each sorted by name, files ending in
    // heic, jpg, jpeg or png (any case), each file name only the first time it is met.
    static const std::vector<WallpaperItem>& wallpapers();
    static std::vector<WallpaperItem> listWallpapers(const std::vector<std::filesystem::path>& folders);
    // A name starting with "/" is a path, used if the file exists; any other name is a `fileName`
    // of `wallpapers`, then a file in each system folder. Nothing found: none.
    static std::optional<std::filesystem::path> wallpaperURL(std::string_view name);
};

}  // namespace halvane
