#include "Model/RecordedEvents.h"

namespace halvane {

std::vector<ClickEvent> RecordedEvents::leftClickDowns() const {
    std::vector<ClickEvent> result;
    for (const auto& c : clicks)
        if (c.button == 0 && c.phase == ClickPhase::down) result.push_back(c);
    return result;
}

void fromJson(const Json& j, MouseSample& out) {
    JsonObjectReader r(j);
    r.required("t", out.t);
    r.required("x", out.x);
    r.required("y", out.y);
}

void fromJson(const Json& j, ClickEvent& out) {
    JsonObjectReader r(j);
    r.required("t", out.t);
    r.required("x", out.x);
    r.required("y", out.y);
    r.required("button", out.button);
    r.required("phase", out.phase);
    r.optional("source", out.source);
}

void fromJson(const Json& j, KeyEvent& out) {
    JsonObjectReader r(j);
    r.required("t", out.t);
    r.required("label", out.label);
    r.required("modifiers", out.modifiers);
}

void fromJson(const Json& j, CursorShapeSample& out) {
    JsonObjectReader r(j);
    r.required("t", out.t);
    const Json* shape = r.find("shape");
    if (!shape || !shape->is_string()) throw JsonDecodeError("shape must be a string");
    // A shape this version doesn't know is drawn as the arrow.
    out.shape = enumFromName<CursorShape>(shape->get_ref<const std::string&>()).value_or(CursorShape::arrow);
}

void fromJson(const Json& j, FocusSample& out) {
    JsonObjectReader r(j);
    r.required("t", out.t);
    r.required("source", out.source);
}

void fromJson(const Json& j, WindowFrameSample& out) {
    JsonObjectReader r(j);
    r.required("t", out.t);
    r.required("frame", out.frame);
}

void fromJson(const Json& j, RecordedEvents& out) {
    JsonObjectReader r(j);
    RecordedEvents e;
    r.lenient("samples", e.samples);
    r.lenient("clicks", e.clicks);
    r.lenient("keys", e.keys);
    r.lenient("shapes", e.shapes);
    r.lenient("focus", e.focus);
    r.lenient("pointerSpace", e.pointerSpace);
    r.lenient("windowFrames", e.windowFrames);
    out = std::move(e);
}

Json toJson(const MouseSample& v) { return Json{{"t", v.t}, {"x", v.x}, {"y", v.y}}; }

Json toJson(const ClickEvent& v) {
    Json j{{"t", v.t}, {"x", v.x}, {"y", v.y}, {"button", v.button}, {"phase", toJson(v.phase)}};
    putOptional(j, "source", v.source);
    return j;
}

Json toJson(const KeyEvent& v) { return Json{{"t", v.t}, {"label", v.label}, {"modifiers", v.modifiers}}; }
Json toJson(const CursorShapeSample& v) { return Json{{"t", v.t}, {"shape", toJson(v.shape)}}; }
Json toJson(const FocusSample& v) { return Json{{"t", v.t}, {"source", v.source}}; }
Json toJson(const WindowFrameSample& v) { return Json{{"t", v.t}, {"frame", toJson(v.frame)}}; }

Json toJson(const RecordedEvents& v) {
    Json j = Json::object();
    j["samples"] = toJson(v.samples);
    j["clicks"] = toJson(v.clicks);
    j["keys"] = toJson(v.keys);
    j["shapes"] = toJson(v.shapes);
    j["focus"] = toJson(v.focus);
    putOptional(j, "pointerSpace", v.pointerSpace);
    Json frames = Json::array();
    for (const auto& list : v.windowFrames) frames.push_back(toJson(list));
    j["windowFrames"] = std::move(frames);
    return j;
}

}  // namespace halvane
