#pragma once

#include "Model/EditSettings.h"
#include "Model/RecordedEvents.h"
#include "Model/RecordingMeta.h"

#include <vector>

namespace halvane {

class Project;

// The editor's "regenerate zooms": the zooms the user placed stay, the generated ones are made
// afresh from the clicks at the edit's auto-zoom level.
struct ZoomRegeneration {
    // The level regeneration uses: `autoZoomLevel`, capped by the captured width for a
    // single-source take.
    static double level(const RecordingMeta& meta, const EditSettings& settings, bool multiSource);
    // Manual zooms followed by freshly generated ones, sorted by start.
    static std::vector<ZoomSegment> zooms(const RecordingMeta& meta, const RecordedEvents& events,
                                          const EditSettings& settings, bool multiSource);
    // Applies `zooms` to the project's edit as one undo step.
    static void regenerate(Project& project);
};

}  // namespace halvane
