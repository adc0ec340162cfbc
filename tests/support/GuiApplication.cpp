#include "support/GuiApplication.h"

#include "Render/GuiApplication.h"

namespace halvane::test {

void ensureGuiApplication() { halvane::ensureGuiApplication(); }

}  // namespace halvane::test
