#pragma once

#include "Platform/CursorImageSource.h"
#include "Platform/X11Connection.h"

#include <memory>

namespace halvane {

// XFixes GetCursorImageAndName.
class X11CursorImageSource : public CursorImageSource {
public:
    explicit X11CursorImageSource(std::shared_ptr<X11Connection> connection);
    std::optional<CursorImage> current() override;

private:
    std::shared_ptr<X11Connection> x_;
    bool available_ = false;
};

}  // namespace halvane
