#pragma once

#include "Model/EditState.h"
#include "Model/RecordedEvents.h"
#include "Model/RecordingMeta.h"
#include "Model/Transcript.h"
#include "Support/Date.h"
#include "Support/HalvaneError.h"
#include "Support/Json.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace halvane {

// The files of a package; every one sits directly in the package directory.
struct PackageFile {
    static constexpr const char* meta = "meta.json";
    static constexpr const char* events = "events.json";
    static constexpr const char* edit = "edit.json";
    static constexpr const char* transcript = "transcript.json";
    static constexpr const char* thumbnail = "thumbnail.png";
    static constexpr const char* screen = "screen.mov";
    static constexpr const char* camera = "camera.mov";
};

// One open package: its records and the live edit. Shared by the editor, the exporter and the
// take that made it; the media beside the records are never touched.
class Project {
public:
    class RenameError : public HalvaneError {
    public:
        enum class Kind { invalidName };
        explicit RenameError(Kind kind);
        Kind kind() const { return kind_; }

    private:
        Kind kind_;
    };

    // Camera moves derived from the recorded input for a take without "edit.json".
    struct CameraTimelines {
        CowList<ZoomSegment> zooms;
        CowList<FocusSegment> focusSwitches;
    };

    Project(std::filesystem::path url, RecordingMeta meta, RecordedEvents events, EditSettings settings,
            std::optional<Transcript> transcript = std::nullopt);
    Project(const Project&) = delete;
    Project& operator=(const Project&) = delete;

    // Reads the package the way the editor opens it. Throws HalvaneError naming the file when
    // "meta.json" or "events.json" can't be read or isn't a JSON object; a damaged "edit.json"
    // gives generated settings and a damaged "transcript.json" no transcript.
    static std::shared_ptr<Project> load(const std::filesystem::path& url);

    // Makes "Recording <date>.halvane" in `recordingsDirectory` (by default ~/Halvane/recordings),
    // creating the folders. Throws HalvaneError when they can't be created.
    static std::filesystem::path makeNewPackageURL(Date date);
    static std::filesystem::path makeNewPackageURL(Date date, const std::filesystem::path& recordingsDirectory);
    static std::filesystem::path defaultRecordingsDirectory();

    // The one encoding every record of a package is written with: compact, sorted keys.
    template <class T>
    static std::string encode(const T& record) {
        return dumpJson(toJson(record));
    }
    // Reads one record; throws JsonDecodeError when the text is no JSON object.
    template <class T>
    static T decode(std::string_view text) {
        T record;
        fromJson(parseJsonObject(text), record);
        return record;
    }

    // The settings of a take that has no "edit.json" yet.
    static EditSettings defaultSettings(const RecordingMeta& meta, const RecordedEvents& events);
    // The magnification generated zooms get: 1.75 for several sources, else by the captured width.
    static double generatedZoomLevel(const RecordingMeta& meta);
    // Zooms and focus switches generated from the clicks and focus samples.
    static CameraTimelines generatedCameraTimelines(const RecordingMeta& meta, const RecordedEvents& events,
                                                    const EditSettings& settings);

    const std::filesystem::path& url() const { return url_; }
    const RecordingMeta& meta() const { return meta_; }
    const RecordedEvents& events() const { return events_; }
    RecordedEvents& events() { return events_; }
    EditState& editState() { return editState_; }
    const EditState& editState() const { return editState_; }
    const std::optional<Transcript>& transcript() const { return transcript_; }
    void setTranscript(std::optional<Transcript> transcript) { transcript_ = std::move(transcript); }

    std::filesystem::path fileURL(std::string_view fileName) const { return url_ / std::string(fileName); }

    // Writes "edit.json"; a failure is dropped: the next save tries again.
    void saveEdit() const noexcept;
    // Writes "events.json"; throws HalvaneError on failure.
    void saveEvents() const;
    // Writes "transcript.json", or removes it when there is no transcript; failures are dropped.
    void saveTranscript() const noexcept;

    // Gives the take a new name in "meta.json"; the directory keeps its name. A blank text or the
    // current name does nothing; an unusable one throws RenameError; a write failure HalvaneError.
    void rename(std::string_view newName);
    // The name shown for the take: its valid stored name, else the directory's base name.
    std::string displayName() const;

    // Several sources whose further videos are all present.
    bool isMultiWindow() const;

    // Called after a successful rename, so the owner can update the project list.
    std::function<void(const Project&)> onRenamed;

private:
    std::filesystem::path url_;
    RecordingMeta meta_;
    RecordedEvents events_;
    EditState editState_;
    std::optional<Transcript> transcript_;
};

}  // namespace halvane
