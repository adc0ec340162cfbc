#pragma once

namespace halvane {

// Fonts and some image services need one QGuiApplication in the process. Headless programs
// (the command line, tests, benchmarks) call this before drawing text: it makes one on the
// offscreen platform unless a platform is set, once, and keeps it for the life of the process.
void ensureGuiApplication();

}  // namespace halvane
