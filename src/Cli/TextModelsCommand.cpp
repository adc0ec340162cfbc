#include "Capture/TextReading/TextModelStore.h"
#include "Cli/CliCommand.h"
#include "Cli/Commands.h"
#include "Cli/TextDefaults.h"
#include "Support/Json.h"

#include <QCoreApplication>
#include <QEventLoop>

#include <cmath>
#include <iostream>

namespace halvane::cli {

namespace {

std::string usageText() {
    return std::string(
               "Usage: halvane-cli text-models install|remove|status [--json]\n\n"
               "The PP-OCR text models that `read-text --engine automatic` uses.\n\n"
               "  install  download the release archive, check its size and SHA-256, unpack it, check that\n"
               "           both models load, move it into place and select the engine\n"
               "  remove   turn the engine off and delete the installed models\n"
               "  status   whether the engine is selected and the models are installed\n\n"
               "The archive is fetched from BASE/models/") +
           TextModelStore::release.name + TextModelStore::archiveExtension +
           ", where BASE is\nHALVANE_TEXT_MODEL_URL when it holds an http or https URL with a host, else " +
           TextModelStore::defaultBaseUrl +
           "\n(the program's download site). Without network access and without that variable, install fails.\n";
}

Json statusJson(const TextModelStore& store) {
    Json release = Json::object();
    release["name"] = TextModelStore::release.name;
    release["sha256"] = TextModelStore::release.sha256;
    release["size"] = static_cast<long long>(TextModelStore::release.size);
    Json out = Json::object();
    out["archiveURL"] = store.archiveUrl().toString().toStdString();
    if (auto directory = store.installedDirectory()) out["directory"] = directory->string();
    out["installed"] = store.isInstalled();
    out["release"] = release;
    out["selected"] = store.isSelected();
    return out;
}

int install(TextModelStore& store) {
    if (!store.root()) return failure("there is no data folder to install the text models into");
    int argc = 1;
    char name[] = "halvane-cli";
    char* argv[] = {name, nullptr};
    QCoreApplication app(argc, argv);
    QEventLoop loop;
    int shownPercent = -1;
    store.onChange = [&] {
        const auto& phase = store.phase();
        if (phase.kind == TextModelStore::Phase::Kind::downloading) {
            int percent = static_cast<int>(std::floor(phase.fraction * 100));
            if (percent != shownPercent) std::cerr << "downloading " << percent << "%\n";
            shownPercent = percent;
        } else if (phase.kind == TextModelStore::Phase::Kind::installing) {
            std::cerr << "installing\n";
        }
        if (!store.isRunning()) loop.quit();
    };
    store.select();
    if (store.isRunning()) loop.exec();
    if (store.phase().kind == TextModelStore::Phase::Kind::failed)
        return failure(store.archiveUrl().toString().toStdString() + ": " + store.phase().message);
    if (!store.isInstalled()) return failure("the text models could not be installed");
    std::cout << store.installedDirectory()->string() << "\n";
    return exitSuccess;
}

}  // namespace

int runTextModels(const Args& args) {
    std::optional<std::string> action;
    bool json = false;
    for (const auto& arg : args) {
        if (arg == "--help" || arg == "-h") {
            std::cout << usageText();
            return exitSuccess;
        } else if (arg == "--json") {
            json = true;
        } else if (!action && (arg == "install" || arg == "remove" || arg == "status")) {
            action = arg;
        } else {
            return usageError("unexpected argument \"" + arg + "\" (see text-models --help)");
        }
    }
    if (!action) return usageError("text-models needs install, remove or status");

    TextDefaults defaults;
    TextModelStore store(defaults);
    if (*action == "install") return install(store);
    if (*action == "remove") {
        store.deselect();
        std::cout << "removed\n";
        return exitSuccess;
    }
    if (json) {
        std::cout << dumpJson(statusJson(store)) << "\n";
    } else {
        std::cout << "release    " << TextModelStore::release.name << "\n"
                  << "selected   " << (store.isSelected() ? "yes" : "no") << "\n"
                  << "installed  " << (store.isInstalled() ? "yes" : "no") << "\n";
        if (auto directory = store.installedDirectory()) std::cout << "directory  " << directory->string() << "\n";
        std::cout << "archive    " << store.archiveUrl().toString().toStdString() << "\n";
    }
    return exitSuccess;
}

}  // namespace halvane::cli
