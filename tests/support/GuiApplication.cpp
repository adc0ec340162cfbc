#include "support/GuiApplication.h"

#include <QGuiApplication>

#include <cstdlib>

namespace halvane::test {

void ensureGuiApplication() {
    if (QGuiApplication::instance()) return;
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    static int argc = 1;
    static char name[] = "halvane-test";
    static char* argv[] = {name, nullptr};
    static QGuiApplication* app = new QGuiApplication(argc, argv);
    (void)app;
}

}  // namespace halvane::test
