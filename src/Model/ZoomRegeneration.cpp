#include "Model/ZoomRegeneration.h"

#include "Model/Project.h"
#include "Model/StableOrder.h"
#include "Model/ZoomTimeline.h"

#include <algorithm>

namespace halvane {

double ZoomRegeneration::level(const RecordingMeta& meta, const EditSettings& settings, bool multiSource) {
    double level = settings.autoZoomLevel;
    // A narrow capture can't stand a deep zoom: its pixels would show.
    if (!multiSource && meta.pointWidth > 0) level = std::min(level, std::max(meta.pointWidth / 400, 1.0));
    return level;
}

std::vector<ZoomSegment> ZoomRegeneration::zooms(const RecordingMeta& meta, const RecordedEvents& events,
                                                 const EditSettings& settings, bool multiSource) {
    std::vector<ZoomSegment> result;
    for (const auto& z : settings.zooms)
        if (!z.isAuto) result.push_back(z);
    const int sourceCount = multiSource ? static_cast<int>(meta.sources.size()) : 0;
    auto generated = ZoomTimeline::generate(events.clicks, level(meta, settings, multiSource), meta.duration,
                                            sourceCount, settings.focusSwitches.get());
    result.insert(result.end(), generated.begin(), generated.end());
    stableSortBy(result, &ZoomSegment::start);
    return result;
}

void ZoomRegeneration::regenerate(Project& project) {
    auto next = zooms(project.meta(), project.events(), project.editState().settings(), project.isMultiWindow());
    project.editState().edit("undo.regenerateZooms", EditState::Change::zooms,
                             [&](EditSettings& s) { s.zooms = std::move(next); });
}

}  // namespace halvane
