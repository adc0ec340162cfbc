#include "Render/BackgroundLibrary.h"

#include <algorithm>
#include <cctype>
#include <set>
#include <system_error>

namespace halvane {
namespace {

GradientPreset numbered(int n, std::vector<std::string> colors, double angle, std::optional<std::vector<double>> locations) {
    return {"shots-gradient-" + std::to_string(n), "Gradient " + std::to_string(n), std::move(colors), angle,
            std::move(locations)};
}

std::string capitalized(std::string id) {
    if (!id.empty()) id[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(id[0])));
    return id;
}

GradientPreset named(std::string id, std::vector<std::string> colors, double angle) {
    return {id, capitalized(id), std::move(colors), angle, std::nullopt};
}

WallpaperPreset mesh(std::string id, std::string top, std::string bottom, double vignette,
                     std::vector<WallpaperPreset::Glow> glows) {
    return {id, capitalized(id), std::move(top), std::move(bottom), std::move(glows), vignette};
}

// "prefix" + each of the numbers, in the order given.
std::vector<std::string> ids(const std::string& prefix, std::initializer_list<int> numbers) {
    std::vector<std::string> out;
    for (int n : numbers) out.push_back(prefix + std::to_string(n));
    return out;
}

std::vector<std::string> idRange(const std::string& prefix, int first, int last) {
    std::vector<std::string> out;
    for (int n = first; n <= last; ++n) out.push_back(prefix + std::to_string(n));
    return out;
}

std::vector<std::string> joined(std::initializer_list<std::vector<std::string>> parts) {
    std::vector<std::string> out;
    for (const auto& part : parts) out.insert(out.end(), part.begin(), part.end());
    return out;
}

RemoteWallpaperGroup group(const std::string& name, const std::vector<std::string>& presetIDs) {
    RemoteWallpaperGroup g{name, {}};
    for (size_t i = 0; i < presetIDs.size(); ++i) g.presets.push_back({presetIDs[i], name + " " + std::to_string(i + 1)});
    return g;
}

template <class T>
std::optional<T> findByID(const std::vector<T>& table, std::string_view id) {
    auto it = std::find_if(table.begin(), table.end(), [&](const T& p) { return p.id == id; });
    if (it == table.end()) return std::nullopt;
    return *it;
}

bool isPictureExtension(std::string extension) {
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension == ".heic" || extension == ".jpg" || extension == ".jpeg" || extension == ".png";
}

bool isFile(const std::filesystem::path& path) {
    std::error_code error;
    return std::filesystem::is_regular_file(path, error);
}

}  // namespace

const std::vector<GradientPreset>& BackgroundLibrary::numberedGradients() {
    static const std::vector<GradientPreset> table = {
        numbered(1, {"#FF6432", "#FF0065", "#7B2EFF"}, 310, std::vector<double>{0.128, 0.4352, 0.8434}),
        numbered(2, {"#F4E5F0", "#E536AB", "#5C03BC", "#0E0725"}, 310, std::nullopt),
        numbered(3, {"#EEDDF3", "#EE92B1", "#6330B4"}, 315, std::nullopt),
        numbered(4, {"#45BEE8", "#D6A1AC", "#E88C5D"}, 336.04, std::vector<double>{0.1354, 0.5, 0.8542}),
        numbered(5, {"#45E99F", "#D5A89B", "#E84698"}, 336.04, std::vector<double>{0.1198, 0.5, 0.8542}),
        numbered(6, {"#45DFE8", "#D3AAAF", "#E86764"}, 336.04, std::vector<double>{0.1198, 0.5, 0.8542}),
        numbered(7, {"#A0E97D", "#A9CBB1", "#C080E8"}, 156.04, std::vector<double>{0.1146, 0.5, 0.8854}),
        numbered(8, {"#727A9A", "#D8DBE9"}, 135, std::nullopt),
        numbered(9, {"#303030", "#101010"}, 315, std::nullopt),
        numbered(10, {"#4FACFE", "#00F2FE"}, 315, std::nullopt),
        numbered(11, {"#0ACFFE", "#495AFF"}, 315, std::nullopt),
        numbered(12, {"#3D4E81", "#5753C9", "#6E7FF3"}, 135, std::vector<double>{0, 0.48, 1}),
        numbered(13, {"#C6FFDD", "#FBD786", "#F7797D"}, 315, std::nullopt),
        numbered(14, {"#F8D081", "#EE8144"}, 315, std::nullopt),
        numbered(15, {"#F83600", "#F9D423"}, 135, std::nullopt),
        numbered(16, {"#D4FC79", "#96E6A1"}, 315, std::nullopt),
        numbered(17, {"#43E97B", "#38F9D7"}, 315, std::nullopt),
        numbered(18, {"#F9F047", "#0FD850"}, 315, std::nullopt),
        numbered(19, {"#69EACB", "#EACCF8", "#6654F1"}, 315, std::vector<double>{0, 0.48, 1}),
        numbered(20, {"#D7EBEB", "#F4AFE9", "#9D7EF3"}, 315, std::nullopt),
        numbered(21, {"#505285", "#585E92", "#65689F", "#7474B0", "#7E7EBB", "#8389C7", "#9795D4", "#A2A1DC", "#B5AEE4"}, 135, std::vector<double>{0, 0.12, 0.25, 0.37, 0.5, 0.62, 0.75, 0.87, 1}),
    };
    return table;
}

const std::vector<GradientPreset>& BackgroundLibrary::namedGradients() {
    static const std::vector<GradientPreset> table = {
        named("aurora", {"#6366F1", "#A855F7", "#EC4899"}, 315),
        named("sunset", {"#F97316", "#EC4899"}, 300),
        named("ocean", {"#0EA5E9", "#6366F1"}, 315),
        named("mint", {"#10B981", "#0EA5E9"}, 330),
        named("candy", {"#F472B6", "#FBBF24"}, 315),
        named("peach", {"#FDA4AF", "#FED7AA"}, 300),
        named("lagoon", {"#06B6D4", "#3B82F6", "#8B5CF6"}, 315),
        named("forest", {"#166534", "#4ADE80"}, 315),
        named("ember", {"#7F1D1D", "#F97316"}, 315),
        named("grape", {"#4C1D95", "#C026D3"}, 315),
        named("midnight", {"#312E81", "#0F172A"}, 270),
        named("steel", {"#334155", "#0F172A"}, 300),
        named("graphite", {"#44444A", "#1C1C1E"}, 270),
        named("cloud", {"#F1F5F9", "#CBD5E1"}, 270),
        named("linen", {"#FAF5EF", "#E7DFD3"}, 300),
    };
    return table;
}

const std::vector<WallpaperPreset>& BackgroundLibrary::wallpaperPresets() {
    static const std::vector<WallpaperPreset> table = {
        mesh("prism", "#2E1065", "#1E1B4B", 0.12,
             {{"#7C3AED", 0.72, 0.10, 0.62, 0.80},
              {"#EC4899", 0.12, 0.28, 0.58, 0.85},
              {"#06B6D4", 0.88, 0.82, 0.62, 0.80},
              {"#F59E0B", 0.30, 0.92, 0.45, 0.55}}),
        mesh("nebula", "#1E1B4B", "#0B0724", 0.16,
             {{"#6D28D9", 0.25, 0.20, 0.60, 0.70},
              {"#DB2777", 0.80, 0.30, 0.50, 0.50},
              {"#2563EB", 0.65, 0.85, 0.60, 0.60}}),
        mesh("voltage", "#1E3A8A", "#0F172A", 0.12,
             {{"#2563EB", 0.20, 0.15, 0.60, 0.85},
              {"#22D3EE", 0.85, 0.30, 0.50, 0.70},
              {"#7C3AED", 0.60, 0.88, 0.62, 0.75}}),
        mesh("bloom", "#831843", "#4C0519", 0.12,
             {{"#F472B6", 0.20, 0.20, 0.55, 0.80},
              {"#FB7185", 0.85, 0.45, 0.50, 0.70},
              {"#C084FC", 0.35, 0.90, 0.55, 0.60},
              {"#FB923C", 0.90, 0.05, 0.40, 0.55}}),
        mesh("tropic", "#115E59", "#042F2E", 0.12,
             {{"#2DD4BF", 0.25, 0.25, 0.60, 0.80},
              {"#A3E635", 0.85, 0.20, 0.45, 0.60},
              {"#0EA5E9", 0.70, 0.85, 0.60, 0.70}}),
        mesh("mirage", "#86198F", "#BE185D", 0.10,
             {{"#F97316", 0.80, 0.75, 0.60, 0.80},
              {"#F472B6", 0.15, 0.15, 0.55, 0.70},
              {"#38BDF8", 0.10, 0.85, 0.45, 0.45}}),
        mesh("magma", "#450A0A", "#200505", 0.16,
             {{"#DC2626", 0.25, 0.75, 0.60, 0.75},
              {"#F97316", 0.75, 0.25, 0.55, 0.80},
              {"#FACC15", 0.90, 0.08, 0.35, 0.60}}),
        mesh("dawn", "#818CF8", "#F0ABFC", 0.05,
             {{"#FDA4AF", 0.20, 0.75, 0.60, 0.75},
              {"#FDBA74", 0.75, 0.85, 0.55, 0.80},
              {"#FEF08A", 0.85, 0.15, 0.45, 0.55}}),
        mesh("fjord", "#0C4A6E", "#082F49", 0.12,
             {{"#38BDF8", 0.80, 0.20, 0.55, 0.70},
              {"#2DD4BF", 0.20, 0.80, 0.55, 0.60},
              {"#818CF8", 0.15, 0.15, 0.45, 0.45}}),
        mesh("reef", "#155E75", "#083344", 0.12,
             {{"#22D3EE", 0.30, 0.30, 0.60, 0.75},
              {"#34D399", 0.85, 0.75, 0.55, 0.65},
              {"#60A5FA", 0.75, 0.10, 0.40, 0.45}}),
        mesh("nocturne", "#1E1B4B", "#020617", 0.14,
             {{"#6366F1", 0.75, 0.20, 0.55, 0.55},
              {"#A855F7", 0.20, 0.60, 0.55, 0.40},
              {"#0EA5E9", 0.85, 0.90, 0.45, 0.35}}),
        mesh("eclipse", "#18181B", "#09090B", 0.15,
             {{"#7C3AED", 0.70, 0.25, 0.55, 0.45},
              {"#DB2777", 0.25, 0.75, 0.50, 0.32},
              {"#2563EB", 0.15, 0.15, 0.40, 0.28}}),
        mesh("abyss", "#172554", "#020617", 0.16,
             {{"#1D4ED8", 0.30, 0.30, 0.60, 0.55},
              {"#0891B2", 0.80, 0.80, 0.55, 0.50}}),
        mesh("slate", "#334155", "#0F172A", 0.10,
             {{"#64748B", 0.75, 0.20, 0.60, 0.55},
              {"#94A3B8", 0.20, 0.75, 0.50, 0.30},
              {"#475569", 0.15, 0.10, 0.45, 0.50}}),
        mesh("polar", "#E0F2FE", "#EDE9FE", 0.03,
             {{"#BAE6FD", 0.20, 0.20, 0.55, 0.80},
              {"#C7D2FE", 0.85, 0.70, 0.55, 0.75},
              {"#FBCFE8", 0.70, 0.05, 0.40, 0.60}}),
        mesh("haze", "#FDF2F8", "#EFF6FF", 0.02,
             {{"#FBCFE8", 0.25, 0.30, 0.55, 0.75},
              {"#DDD6FE", 0.80, 0.20, 0.50, 0.70},
              {"#BAE6FD", 0.70, 0.85, 0.55, 0.70},
              {"#FED7AA", 0.10, 0.85, 0.40, 0.55}}),
        mesh("powder", "#DBEAFE", "#FCE7F3", 0.03,
             {{"#93C5FD", 0.25, 0.20, 0.55, 0.70},
              {"#F9A8D4", 0.80, 0.75, 0.55, 0.65},
              {"#C4B5FD", 0.75, 0.15, 0.40, 0.55}}),
        mesh("meadow", "#D1FAE5", "#ECFCCB", 0.03,
             {{"#6EE7B7", 0.25, 0.25, 0.55, 0.75},
              {"#FDE047", 0.85, 0.75, 0.50, 0.55},
              {"#7DD3FC", 0.75, 0.10, 0.40, 0.45}}),
    };
    return table;
}

std::optional<GradientPreset> BackgroundLibrary::gradient(std::string_view id) {
    if (auto found = findByID(numberedGradients(), id)) return found;
    return findByID(namedGradients(), id);
}

std::optional<WallpaperPreset> BackgroundLibrary::wallpaperPreset(std::string_view id) {
    return findByID(wallpaperPresets(), id);
}

const std::vector<RemoteWallpaperGroup>& BackgroundLibrary::remoteWallpaperGroups() {
    static const std::vector<RemoteWallpaperGroup> groups = {
        group("Glass", idRange("glass-", 1, 11)),
        group("Cosmic", idRange("cosmic-", 1, 10)),
        group("Mystic", ids("mystic-", {9, 10, 11, 12, 13, 14, 1, 2, 3, 4, 5, 6, 7, 8, 15})),
        group("Desktop",
              joined({{"desktop-tahoe-light", "desktop-tahoe-dark", "desktop-tahoe-landscape-day",
                       "desktop-tahoe-landscape-night", "desktop-sequoia-light", "desktop-sonoma-light",
                       "desktop-ventura-light", "desktop-sequoia-dark", "desktop-sonoma-dark", "desktop-ventura-dark",
                       "desktop-monterey-light", "desktop-bigsur-light", "desktop-mojave-light",
                       "desktop-monterey-dark", "desktop-bigsur-dark", "desktop-mojave-dark"},
                      idRange("desktop-", 2, 18),
                      ids("desktop-", {21, 22, 32})})),
        group("Abstract", joined({idRange("abstract-photo-", 1, 6),
                                  ids("abstract-", {1, 16, 12, 2, 19, 18, 3, 4, 5, 6, 7, 8, 9, 10, 11, 13, 14, 15})})),
        group("Earth", joined({idRange("earth-photo-", 1, 12), idRange("earth-", 1, 10)})),
        group("Radiant", joined({idRange("radiant-", 1, 7), {"radiant-photo-1"}, idRange("radiant-", 8, 12)})),
    };
    return groups;
}

const std::vector<RemoteWallpaperPreset>& BackgroundLibrary::remoteWallpapers() {
    static const std::vector<RemoteWallpaperPreset> flat = [] {
        std::vector<RemoteWallpaperPreset> all;
        for (const auto& g : remoteWallpaperGroups()) all.insert(all.end(), g.presets.begin(), g.presets.end());
        return all;
    }();
    return flat;
}

std::optional<RemoteWallpaperPreset> BackgroundLibrary::remoteWallpaper(std::string_view id) {
    return findByID(remoteWallpapers(), id);
}

const std::vector<std::filesystem::path>& BackgroundLibrary::systemWallpaperFolders() {
    static const std::vector<std::filesystem::path> folders = {"/usr/share/backgrounds", "/usr/share/wallpapers"};
    return folders;
}

std::vector<WallpaperItem> BackgroundLibrary::listWallpapers(const std::vector<std::filesystem::path>& folders) {
    std::vector<WallpaperItem> items;
    std::set<std::string> seen;
    for (const auto& folder : folders) {
        std::error_code error;
        std::vector<std::filesystem::path> entries;
        for (auto it = std::filesystem::directory_iterator(folder, error); !error && it != std::filesystem::directory_iterator();
             it.increment(error))
            entries.push_back(it->path());
        std::sort(entries.begin(), entries.end(),
                  [](const auto& a, const auto& b) { return a.filename().string() < b.filename().string(); });
        for (const auto& entry : entries) {
            const std::string name = entry.filename().string();
            if (!isPictureExtension(entry.extension().string()) || !isFile(entry) || !seen.insert(name).second) continue;
            items.push_back({name, entry});
        }
    }
    return items;
}

const std::vector<WallpaperItem>& BackgroundLibrary::wallpapers() {
    static const std::vector<WallpaperItem> items = listWallpapers(systemWallpaperFolders());
    return items;
}

std::optional<std::filesystem::path> BackgroundLibrary::wallpaperURL(std::string_view name) {
    if (name.empty()) return std::nullopt;
    if (name.front() == '/') {
        std::filesystem::path path{std::string(name)};
        if (isFile(path)) return path;
        return std::nullopt;
    }
    for (const auto& item : wallpapers())
        if (item.fileName == name) return item.url;
    for (const auto& folder : systemWallpaperFolders()) {
        auto candidate = folder / std::string(name);
        if (isFile(candidate)) return candidate;
    }
    return std::nullopt;
}

}  // namespace halvane
