#include "Render/GuiApplication.h"

#include <QGuiApplication>

#include <cstdlib>

namespace halvane {

void ensureGuiApplication() {
    if (QGuiApplication::instance()) return;
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    static int argc = 1;
    static char name[] = "halvane";
    static char* argv[] = {name, nullptr};
    // Never destroyed: Qt wants its application to outlast every font and image.
    static QGuiApplication* app = new QGuiApplication(argc, argv);
    (void)app;
}

}  // namespace halvane
