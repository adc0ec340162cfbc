#include "Model/Project.h"

#include "Model/FocusTimeline.h"
#include "Model/ZoomTimeline.h"
#include "Support/AtomicFile.h"
#include "Support/Localization.h"
#include "Support/UnicodeText.h"
#include "Support/UserDirectories.h"

#include <algorithm>
#include <ctime>
#include <system_error>

namespace halvane {

namespace fs = std::filesystem;

Project::RenameError::RenameError(Kind kind)
    : HalvaneError(Localization::string("recording.rename.invalidName")), kind_(kind) {}

Project::Project(fs::path url, RecordingMeta meta, RecordedEvents events, EditSettings settings,
                 std::optional<Transcript> transcript)
    : url_(std::move(url)),
      meta_(std::move(meta)),
      events_(std::move(events)),
      editState_(std::move(settings)),
      transcript_(std::move(transcript)) {
    // "take.halvane/" names the same package as "take.halvane"; the base name needs the latter.
    if (!url_.has_filename() && url_.has_parent_path()) url_ = url_.parent_path();
}

namespace {

// Reads a record that must be there; the error names the file and the reason.
template <class T>
T readRequiredRecord(const fs::path& file) {
    std::string text = readFile(file);
    try {
        return Project::decode<T>(text);
    } catch (const JsonDecodeError& e) {
        throw HalvaneError("Could not read \"" + file.string() + "\": " + e.what());
    }
}

// Reads a record whose absence or damage only means "use something else".
template <class T>
std::optional<T> readOptionalRecord(const fs::path& file) {
    std::error_code ec;
    if (!fs::is_regular_file(file, ec)) return std::nullopt;
    try {
        return Project::decode<T>(readFile(file));
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::string localPackageStamp(Date date) {
    std::time_t t = std::chrono::system_clock::to_time_t(date);
    std::tm tm{};
    localtime_r(&t, &tm);
    char buf[64];
    std::strftime(buf, sizeof buf, "%Y-%m-%d at %H.%M.%S", &tm);
    return buf;
}

}  // namespace

std::shared_ptr<Project> Project::load(const fs::path& url) {
    RecordingMeta meta = readRequiredRecord<RecordingMeta>(url / PackageFile::meta);
    RecordedEvents events = readRequiredRecord<RecordedEvents>(url / PackageFile::events);
    std::optional<EditSettings> settings = readOptionalRecord<EditSettings>(url / PackageFile::edit);
    if (!settings) settings = defaultSettings(meta, events);
    std::optional<Transcript> transcript = readOptionalRecord<Transcript>(url / PackageFile::transcript);
    return std::make_shared<Project>(url, std::move(meta), std::move(events), std::move(*settings), std::move(transcript));
}

fs::path Project::defaultRecordingsDirectory() { return UserDirectories::home() / "Halvane" / "recordings"; }

fs::path Project::makeNewPackageURL(Date date) { return makeNewPackageURL(date, defaultRecordingsDirectory()); }

fs::path Project::makeNewPackageURL(Date date, const fs::path& recordingsDirectory) {
    fs::path url = recordingsDirectory / ("Recording " + localPackageStamp(date) + ".halvane");
    std::error_code ec;
    fs::create_directories(url, ec);
    if (ec) throw HalvaneError("Could not create \"" + url.string() + "\": " + ec.message(), ec.value());
    return url;
}

double Project::generatedZoomLevel(const RecordingMeta& meta) {
    if (meta.sources.size() > 1) return 1.75;
    if (!(meta.pointWidth > 0)) return 1.75;
    return std::clamp(meta.pointWidth / 400.0, 1.0, 1.75);
}

Project::CameraTimelines Project::generatedCameraTimelines(const RecordingMeta& meta, const RecordedEvents& events,
                                                           const EditSettings& settings) {
    (void)settings;
    const int sources = static_cast<int>(meta.sources.size());
    CameraTimelines camera;
    std::vector<FocusSegment> switches;
    if (sources >= 2) switches = FocusTimeline::generate(events.focus, sources, events.clicks);
    camera.zooms = ZoomTimeline::generate(events.clicks, generatedZoomLevel(meta), meta.duration, sources > 1 ? sources : 0,
                                          switches);
    camera.focusSwitches = std::move(switches);
    return camera;
}

EditSettings Project::defaultSettings(const RecordingMeta& meta, const RecordedEvents& events) {
    EditSettings s;
    const bool wholeDisplay = meta.mode == "display";
    const bool device = meta.mode == "device";
    s.showBackground = !wholeDisplay;
    s.padding = wholeDisplay ? 0 : 0.07;
    s.cornerRadiusFraction = wholeDisplay ? 0 : 0.016;
    s.showCursor = !device;
    s.autoZoom = !device;
    CameraTimelines camera = generatedCameraTimelines(meta, events, s);
    s.zooms = std::move(camera.zooms);
    s.focusSwitches = std::move(camera.focusSwitches);
    return s;
}

void Project::saveEdit() const noexcept {
    try {
        writeFileAtomically(fileURL(PackageFile::edit), encode(editState_.settings()));
    } catch (const std::exception&) {
        // The next autosave tries again; a failed one must not interrupt the edit.
    }
}

void Project::saveEvents() const { writeFileAtomically(fileURL(PackageFile::events), encode(events_)); }

void Project::saveTranscript() const noexcept {
    try {
        if (transcript_) {
            writeFileAtomically(fileURL(PackageFile::transcript), encode(*transcript_));
        } else {
            std::error_code ec;
            fs::remove(fileURL(PackageFile::transcript), ec);
        }
    } catch (const std::exception&) {
        // Captions are regenerated on demand; a lost save costs only time.
    }
}

std::string Project::displayName() const {
    if (meta_.name)
        if (auto name = RecordingMeta::validatedName(*meta_.name)) return *name;
    return url_.stem().string();
}

void Project::rename(std::string_view newName) {
    std::string trimmed = UnicodeText::trimmingWhitespaceAndNewlines(newName);
    if (trimmed.empty() || trimmed == displayName()) return;
    if (!RecordingMeta::validatedName(trimmed)) throw RenameError(RenameError::Kind::invalidName);
    RecordingMeta renamed = meta_;
    renamed.name = trimmed;
    writeFileAtomically(fileURL(PackageFile::meta), encode(renamed));
    meta_ = std::move(renamed);
    if (onRenamed) onRenamed(*this);
}

bool Project::isMultiWindow() const {
    if (meta_.sources.size() < 2) return false;
    std::error_code ec;
    return std::all_of(meta_.sources.begin() + 1, meta_.sources.end(),
                       [&](const RecordingSource& s) { return fs::exists(fileURL(s.fileName), ec); });
}

}  // namespace halvane
