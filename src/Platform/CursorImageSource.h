#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace halvane {

// The cursor the system shows now: its theme name when it has one, and its picture as
// premultiplied ARGB words, row by row.
struct CursorImage {
    std::string name;
    int width = 0;
    int height = 0;
    std::vector<uint32_t> argb;
    uint32_t serial = 0;  // changes whenever the cursor changes
    friend bool operator==(const CursorImage&, const CursorImage&) = default;
};

class CursorImageSource {
public:
    virtual ~CursorImageSource() = default;
    virtual std::optional<CursorImage> current() = 0;
};

}  // namespace halvane
