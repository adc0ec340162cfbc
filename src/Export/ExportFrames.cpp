#include "Export/ExportFrames.h"

#include "Export/ExportError.h"
#include "Model/Project.h"

#include <filesystem>

namespace halvane {

namespace {

std::unique_ptr<MovieFrames> openIfPossible(const std::filesystem::path& movie, double startAt, double until) {
    try {
        return std::make_unique<MovieFrames>(movie, startAt, until);
    } catch (const HalvaneError&) {
        return nullptr;
    }
}

}  // namespace

ExportFrames::ExportFrames(const Project& project, const EditSettings& settings, Size canvasSize, double fps) {
    const RecordingMeta& meta = project.meta();
    const TimeRange trim = settings.trimBounds(meta.duration);
    try {
        screen_ = std::make_unique<MovieFrames>(project.fileURL(PackageFile::screen), trim.lower, trim.upper);
    } catch (const HalvaneError& e) {
        throw ExportError::setupFailed(e.localizedDescription());
    }

    std::vector<FrameSource*> screens{screen_.get()};
    if (project.isMultiWindow()) {
        for (size_t i = 1; i < meta.sources.size(); ++i) {
            const auto& source = meta.sources[i];
            others_.push_back(openIfPossible(project.fileURL(source.fileName),
                                             std::max(trim.lower - source.startOffset, 0.0),
                                             trim.upper - source.startOffset));
            screens.push_back(others_.back().get());
        }
    }
    const auto cameraFile = project.fileURL(PackageFile::camera);
    if (meta.hasCamera && settings.webcamEnabled && std::filesystem::exists(cameraFile))
        camera_ = openIfPossible(cameraFile, 0, std::numeric_limits<double>::infinity());

    CompositionInput input;
    input.meta = meta;
    input.events = project.events();
    input.settings = settings;
    if (settings.captionsEnabled) input.transcript = project.transcript();
    input.package = project.url();
    input.canvasSize = canvasSize;
    input.fps = fps;
    composer_ = std::make_unique<FrameComposer>(std::move(input), std::move(screens), camera_.get(),
                                                meta.cameraStartOffset);
}

}  // namespace halvane
