#include "Model/CanvasAnnotation.h"

namespace halvane {

void fromJson(const Json& j, CanvasAnnotation& out) {
    JsonObjectReader r(j);
    CanvasAnnotation a;
    r.required("id", a.id);
    r.required("start", a.start);
    r.required("end", a.end);
    r.optional("text", a.text);
    r.optional("position", a.position);
    r.optional("size", a.size);
    r.optional("pill", a.pill);
    r.optional("kind", a.kind);
    r.optional("span", a.span);
    r.optional("style", a.style);
    r.optional("number", a.number);
    r.optional("imageFileName", a.imageFileName);
    r.optional("imageAspect", a.imageAspect);
    out = std::move(a);
}

Json toJson(const CanvasAnnotation& v) {
    Json j = Json::object();
    j["id"] = toJson(v.id);
    j["start"] = v.start;
    j["end"] = v.end;
    j["text"] = v.text;
    j["position"] = toJson(v.position);
    j["size"] = v.size;
    j["pill"] = v.pill;
    j["kind"] = toJson(v.kind);
    j["span"] = toJson(v.span);
    j["style"] = toJson(v.style);
    j["number"] = v.number;
    putOptional(j, "imageFileName", v.imageFileName);
    j["imageAspect"] = v.imageAspect;
    return j;
}

}  // namespace halvane
