#include "Model/EditTypes.h"

namespace halvane {

void fromJson(const Json& j, CanvasBackground& out) {
    TaggedValue tagged = decodeTagged(j);
    auto kind = enumFromName<CanvasBackground::Kind>(tagged.caseName);
    // A key that names no case counts as no key at all.
    if (!kind) throw JsonDecodeError("Invalid number of keys found, expected one.");
    std::string value;
    fromJson(*tagged.payload, value);
    out = {*kind, std::move(value)};
}

Json toJson(const CanvasBackground& v) { return encodeTagged(enumName(v.kind), v.value); }

void fromJson(const Json& j, ZoomSegment& out) {
    JsonObjectReader r(j);
    r.required("id", out.id);
    r.required("start", out.start);
    r.required("end", out.end);
    r.required("level", out.level);
    r.required("target", out.target);
    r.required("isAuto", out.isAuto);
    r.optional("source", out.source);
}

Json toJson(const ZoomSegment& v) {
    Json j{{"id", toJson(v.id)}, {"start", v.start}, {"end", v.end}, {"level", v.level}, {"target", toJson(v.target)}, {"isAuto", v.isAuto}};
    putOptional(j, "source", v.source);
    return j;
}

void fromJson(const Json& j, FocusSegment& out) {
    JsonObjectReader r(j);
    r.required("id", out.id);
    r.required("start", out.start);
    r.required("source", out.source);
}

Json toJson(const FocusSegment& v) { return Json{{"id", toJson(v.id)}, {"start", v.start}, {"source", v.source}}; }

void fromJson(const Json& j, SpeedSegment& out) {
    JsonObjectReader r(j);
    r.required("id", out.id);
    r.required("start", out.start);
    r.required("end", out.end);
    r.required("factor", out.factor);
}

Json toJson(const SpeedSegment& v) {
    return Json{{"id", toJson(v.id)}, {"start", v.start}, {"end", v.end}, {"factor", v.factor}};
}

void fromJson(const Json& j, CutSegment& out) {
    JsonObjectReader r(j);
    r.required("id", out.id);
    r.required("start", out.start);
    r.required("end", out.end);
}

Json toJson(const CutSegment& v) { return Json{{"id", toJson(v.id)}, {"start", v.start}, {"end", v.end}}; }

void fromJson(const Json& j, MaskAnnotation& out) {
    JsonObjectReader r(j);
    r.required("id", out.id);
    r.required("start", out.start);
    r.required("end", out.end);
    r.required("rect", out.rect);
    r.required("style", out.style);
    r.optional("source", out.source);
}

Json toJson(const MaskAnnotation& v) {
    Json j{{"id", toJson(v.id)}, {"start", v.start}, {"end", v.end}, {"rect", toJson(v.rect)}, {"style", toJson(v.style)}};
    putOptional(j, "source", v.source);
    return j;
}

}  // namespace halvane
