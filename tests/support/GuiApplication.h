#pragma once

namespace halvane::test {

// Fonts and other QtGui services need one QGuiApplication in the process; tests that draw text
// call this first. It is made once (on the offscreen platform unless one is set) and kept.
void ensureGuiApplication();

}  // namespace halvane::test
