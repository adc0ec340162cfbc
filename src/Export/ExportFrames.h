#pragma once

#include "Media/MovieFrames.h"
#include "Model/EditSettings.h"
#include "Render/FrameComposer.h"

#include <memory>
#include <vector>

namespace halvane {

class Project;

// The pictures of an export: the package's movies opened from just before the trim, and the
// composition that turns them into canvas frames at output times.
class ExportFrames {
public:
    // Throws ExportError::setupFailed when the main movie can't be read. A further source or the
    // camera that can't be opened is left out.
    ExportFrames(const Project& project, const EditSettings& settings, Size canvasSize, double fps);

    QImage compose(double outputTime) { return composer_->composeOutputFrame(outputTime); }
    // The same frame as a planar picture (Render/PlanarPicture.h), the movie encoder's form.
    QImage composePlanar(double outputTime) { return composer_->composeOutputPlanar(outputTime); }
    FrameComposer& composer() { return *composer_; }
    const SpeedMap& speedMap() const { return composer_->speedMap(); }
    double outputDuration() const { return composer_->speedMap().outputDuration(); }

private:
    std::unique_ptr<MovieFrames> screen_;
    std::vector<std::unique_ptr<MovieFrames>> others_;
    std::unique_ptr<MovieFrames> camera_;
    std::unique_ptr<FrameComposer> composer_;
};

}  // namespace halvane
