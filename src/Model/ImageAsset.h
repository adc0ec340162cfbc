#pragma once

#include "Support/Bitmap.h"
#include "Support/Geometry.h"
#include "Support/Uuid.h"

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

namespace halvane {

// The bitmap of one `image` annotation. Copies of the annotation and undo snapshots share one
// asset through a shared pointer; it never changes after it is made.
class ImageAsset {
public:
    // The key under which a decoder is handed the assets of a library entry.
    static constexpr std::string_view lookupKey = "halvane.imageAssets";

    ImageAsset(Uuid id, Bitmap image, std::optional<std::filesystem::path> sourceURL = std::nullopt)
        : id_(id), image_(std::move(image)), sourceURL_(std::move(sourceURL)) {}

    const Uuid& id() const { return id_; }
    const Bitmap& image() const { return image_; }
    const std::optional<std::filesystem::path>& sourceURL() const { return sourceURL_; }

    // The area of pixels with alpha of at least 128, outset by one pixel, in bitmap pixels with
    // the origin at the bottom left; the whole bitmap when nothing or everything is that opaque.
    // Computed on first use and kept.
    Rect opaqueBounds() const;

private:
    Uuid id_;
    Bitmap image_;
    std::optional<std::filesystem::path> sourceURL_;
    mutable std::once_flag opaqueOnce_;
    mutable Rect opaqueBounds_;
};

using ImageAssetPointer = std::shared_ptr<const ImageAsset>;
// The assets a decoder may refer to, by id.
using ImageAssetLookup = std::map<Uuid, ImageAssetPointer>;

}  // namespace halvane
