#include "Model/RecordingMeta.h"

#include "Support/UnicodeText.h"

namespace halvane {

std::optional<std::string> RecordingMeta::validatedName(const std::string& raw) {
    std::string name = UnicodeText::trimmingWhitespaceAndNewlines(raw);
    if (name.empty() || name == "." || name == ".." || name.size() > 240) return std::nullopt;
    if (name.find_first_of("/:") != std::string::npos || UnicodeText::containsControlCharacter(name)) return std::nullopt;
    return name;
}

void fromJson(const Json& j, RecordingSource& out) {
    JsonObjectReader r(j);
    RecordingSource s;
    r.lenient("fileName", s.fileName);
    r.lenient("name", s.name);
    r.lenient("pixelWidth", s.pixelWidth);
    r.lenient("pixelHeight", s.pixelHeight);
    r.lenient("pointWidth", s.pointWidth);
    r.lenient("pointHeight", s.pointHeight);
    r.lenient("startOffset", s.startOffset);
    out = std::move(s);
}

Json toJson(const RecordingSource& v) {
    Json j = Json::object();
    j["fileName"] = v.fileName;
    j["name"] = v.name;
    j["pixelWidth"] = v.pixelWidth;
    j["pixelHeight"] = v.pixelHeight;
    j["pointWidth"] = v.pointWidth;
    j["pointHeight"] = v.pointHeight;
    j["startOffset"] = v.startOffset;
    return j;
}

void fromJson(const Json& j, RecordingMeta& out) {
    JsonObjectReader r(j);
    RecordingMeta m;
    r.lenient("version", m.version);
    std::string name;
    if (r.lenient("name", name)) m.name = name;
    r.lenient("mode", m.mode);
    r.lenient("sourceName", m.sourceName);
    r.lenient("createdAt", m.createdAt);
    r.lenient("duration", m.duration);
    r.lenient("pixelWidth", m.pixelWidth);
    r.lenient("pixelHeight", m.pixelHeight);
    r.lenient("pointWidth", m.pointWidth);
    r.lenient("pointHeight", m.pointHeight);
    r.lenient("scale", m.scale);
    r.lenient("fps", m.fps);
    r.lenient("hasSystemAudio", m.hasSystemAudio);
    r.lenient("hasMicrophone", m.hasMicrophone);
    r.lenient("hasCamera", m.hasCamera);
    r.lenient("cameraStartOffset", m.cameraStartOffset);
    r.lenient("sources", m.sources);
    out = std::move(m);
}

Json toJson(const RecordingMeta& v) {
    Json j = Json::object();
    j["version"] = v.version;
    putOptional(j, "name", v.name);
    j["mode"] = v.mode;
    j["sourceName"] = v.sourceName;
    j["createdAt"] = toJson(v.createdAt);
    j["duration"] = v.duration;
    j["pixelWidth"] = v.pixelWidth;
    j["pixelHeight"] = v.pixelHeight;
    j["pointWidth"] = v.pointWidth;
    j["pointHeight"] = v.pointHeight;
    j["scale"] = v.scale;
    j["fps"] = v.fps;
    j["hasSystemAudio"] = v.hasSystemAudio;
    j["hasMicrophone"] = v.hasMicrophone;
    j["hasCamera"] = v.hasCamera;
    j["cameraStartOffset"] = v.cameraStartOffset;
    j["sources"] = toJson(v.sources);
    return j;
}

}  // namespace halvane
