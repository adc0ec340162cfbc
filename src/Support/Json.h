#pragma once

// The JSON conventions of every record the program writes:
//  - objects with sorted keys (nlohmann's default map keeps them sorted), no pretty printing;
//  - a point [x, y], a size [w, h], a rectangle [[x, y], [w, h]], upper-case UUIDs,
//    internet dates with whole seconds and "Z";
//  - an absent optional is left out, never null;
//  - a tagged value is {"case": {"_0": payload}};
//  - readers are lenient per key: a missing, null or ill-typed key keeps its default and reading
//    goes on; list elements are strict, so one bad element empties its list.
//
// Decoding is an overload set `fromJson(const Json&, T&)` that throws JsonDecodeError on any
// mismatch; encoding is `toJson(const T&) -> Json`. Enumerations join the set by declaring
// `enumNames(E)` (their raw strings in case order) in their own namespace.

#include "Support/Date.h"
#include "Support/Geometry.h"
#include "Support/Uuid.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cmath>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace halvane {

using Json = nlohmann::json;
// For the few records whose writers fix a key order of their own instead of sorting.
using OrderedJson = nlohmann::ordered_json;

class JsonDecodeError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Parses text; throws JsonDecodeError when it is no JSON at all.
Json parseJson(std::string_view text);
// The on-disk form: compact, sorted keys.
std::string dumpJson(const Json& value);
std::string dumpJson(const OrderedJson& value);
// Parses text that must hold one object at top level; throws JsonDecodeError otherwise.
Json parseJsonObject(std::string_view text);

// ---- primitives

void fromJson(const Json& j, double& out);
void fromJson(const Json& j, float& out);
void fromJson(const Json& j, int& out);
void fromJson(const Json& j, long long& out);
void fromJson(const Json& j, bool& out);
void fromJson(const Json& j, std::string& out);
void fromJson(const Json& j, Point& out);
void fromJson(const Json& j, Size& out);
void fromJson(const Json& j, Rect& out);
void fromJson(const Json& j, Uuid& out);
void fromJson(const Json& j, Date& out);

inline Json toJson(double v) { return v; }
inline Json toJson(float v) { return static_cast<double>(v); }
inline Json toJson(int v) { return v; }
inline Json toJson(long long v) { return v; }
inline Json toJson(bool v) { return v; }
inline Json toJson(const std::string& v) { return v; }
inline Json toJson(const char* v) { return std::string(v); }
Json toJson(Point p);
Json toJson(Size s);
Json toJson(const Rect& r);
Json toJson(const Uuid& u);
Json toJson(Date d);

// ---- enumerations

template <class E>
concept NamedEnum = std::is_enum_v<E> && requires(E e) { enumNames(e); };

template <NamedEnum E>
std::string_view enumName(E e) {
    auto names = enumNames(E{});
    auto i = static_cast<size_t>(e);
    return i < names.size() ? names[i] : std::string_view{};
}

template <NamedEnum E>
std::optional<E> enumFromName(std::string_view name) {
    auto names = enumNames(E{});
    for (size_t i = 0; i < names.size(); ++i)
        if (names[i] == name) return static_cast<E>(i);
    return std::nullopt;
}

template <NamedEnum E>
void fromJson(const Json& j, E& out) {
    if (!j.is_string()) throw JsonDecodeError("expected a string");
    auto e = enumFromName<E>(j.get_ref<const std::string&>());
    if (!e) throw JsonDecodeError("unknown case \"" + j.get<std::string>() + "\"");
    out = *e;
}

template <NamedEnum E>
Json toJson(E e) {
    return std::string(enumName(e));
}

// ---- containers

template <class T>
void fromJson(const Json& j, std::vector<T>& out) {
    if (!j.is_array()) throw JsonDecodeError("expected an array");
    std::vector<T> result;
    result.reserve(j.size());
    for (const auto& element : j) {
        T value{};
        fromJson(element, value);
        result.push_back(std::move(value));
    }
    out = std::move(result);
}

template <class T>
Json toJson(const std::vector<T>& values) {
    Json a = Json::array();
    for (const auto& v : values) a.push_back(toJson(v));
    return a;
}

template <class T>
void fromJson(const Json& j, std::optional<T>& out) {
    if (j.is_null()) {
        out.reset();
        return;
    }
    T value{};
    fromJson(j, value);
    out = std::move(value);
}

// ---- tagged values {"case": {"_0": payload}}

struct TaggedValue {
    std::string caseName;
    const Json* payload = nullptr;
};
// Throws "Invalid number of keys found, expected one." unless the object has exactly one key.
TaggedValue decodeTagged(const Json& j);
Json encodeTagged(std::string_view caseName, Json payload);

// ---- objects

// Reads the keys of one object. `lenient` keeps the default on any trouble; `required` throws.
class JsonObjectReader {
public:
    // Throws JsonDecodeError when j is not an object.
    explicit JsonObjectReader(const Json& j);

    const Json* find(std::string_view key) const;
    bool has(std::string_view key) const { return find(key) != nullptr; }

    // Missing, null, ill-typed: `out` keeps its value and the result is false.
    template <class T>
    bool lenient(std::string_view key, T& out) const {
        const Json* v = find(key);
        if (!v || v->is_null()) return false;
        try {
            T value = out;
            fromJson(*v, value);
            out = std::move(value);
            return true;
        } catch (const JsonDecodeError&) {
            return false;
        } catch (const nlohmann::json::exception&) {
            return false;
        }
    }

    // Missing or ill-typed fails the enclosing object.
    template <class T>
    void required(std::string_view key, T& out) const {
        const Json* v = find(key);
        if (!v) throw JsonDecodeError("missing key \"" + std::string(key) + "\"");
        fromJson(*v, out);
    }

    // Missing or null keeps the default; a present value of the wrong type fails the object.
    template <class T>
    void optional(std::string_view key, T& out) const {
        const Json* v = find(key);
        if (!v || v->is_null()) return;
        fromJson(*v, out);
    }

private:
    const Json& object_;
};

// Sets key only when the optional holds a value: absent optionals are left out.
template <class T>
void putOptional(Json& object, const char* key, const std::optional<T>& value) {
    if (value) object[key] = toJson(*value);
}

}  // namespace halvane

#include "Support/CowList.h"

namespace halvane {

template <class T>
void fromJson(const Json& j, CowList<T>& out) {
    std::vector<T> values;
    fromJson(j, values);
    out = CowList<T>(std::move(values));
}

template <class T>
Json toJson(const CowList<T>& values) {
    return toJson(values.get());
}

}  // namespace halvane
