#include "App/HalvaneMain.h"

#include "Capture/TextReading/TextReadWorker.h"

#include <QApplication>
#include <QTimer>

#include <cstdlib>

namespace halvane {

HalvaneMain::Dispatch HalvaneMain::classify(const std::vector<std::string>& arguments) {
    if (arguments.size() != 3) return {};
    const std::string& flag = arguments[1];
    if (flag == "--halvane-screenshot-freeze-worker") return {Role::screenshotFreezeWorker, arguments[2]};
    if (flag == "--halvane-window-screenshot-worker") return {Role::windowScreenshotWorker, arguments[2]};
    if (flag == "--halvane-text-read-worker") return {Role::textReadWorker, arguments[2]};
    return {};
}

int HalvaneMain::run(int argc, char** argv) {
    Dispatch dispatch = classify(std::vector<std::string>(argv, argv + argc));
    switch (dispatch.role) {
    case Role::textReadWorker:
        TextReadWorker::runRequestedInvocationAndExit(dispatch.argument);
    case Role::screenshotFreezeWorker:
    case Role::windowScreenshotWorker:
        // Workers that are not built yet end at once with a failure the parent sees as a dead worker.
        std::_Exit(EXIT_FAILURE);
    case Role::application:
        break;
    }
    QApplication app(argc, argv);
    QApplication::setApplicationName("Halvane");
    QApplication::setQuitOnLastWindowClosed(false);
    // The application shell is not built yet: open and quit cleanly.
    QTimer::singleShot(0, &app, &QApplication::quit);
    return app.exec();
}

}  // namespace halvane
