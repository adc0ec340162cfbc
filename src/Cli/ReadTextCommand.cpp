#include "Capture/TextReading/TesseractTextReader.h"
#include "Capture/TextReading/TextModelStore.h"
#include "Capture/TextReading/TextReadWorker.h"
#include "Capture/TextReading/TextRecognizer.h"
#include "Cli/CliCommand.h"
#include "Cli/Commands.h"
#include "Cli/TextDefaults.h"
#include "Support/Json.h"

#include <QImage>
#include <QImageReader>

#include <iostream>

namespace halvane::cli {

namespace {

const char* usage =
    "Usage: halvane-cli read-text IMAGE [--engine automatic|system] [--json]\n\n"
    "Prints the text of a screenshot in reading order.\n\n"
    "  --engine automatic  the installed PP-OCR models through a worker process, falling back to\n"
    "                      Tesseract when the models are missing or the worker fails (default)\n"
    "  --engine system     Tesseract only, in the languages of the user's locale\n"
    "  --json              {\"engine\": \"pp-ocr\"|\"tesseract\", \"fragments\": [{\"rect\": [[x, y], [w, h]],\n"
    "                      \"text\": ...}], \"text\": ...}; rectangles are normalised to the image\n"
    "                      with the origin at the bottom left\n\n"
    "Install the models with `halvane-cli text-models install`.\n";

}  // namespace

int runReadText(const Args& args) {
    std::optional<std::string> path;
    TextRecognizer::Engine engine = TextRecognizer::Engine::automatic;
    bool json = false;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--help" || arg == "-h") {
            std::cout << usage;
            return exitSuccess;
        } else if (arg == "--json") {
            json = true;
        } else if (arg == "--engine") {
            if (++i >= args.size()) return usageError("--engine needs automatic or system");
            if (args[i] == "automatic") engine = TextRecognizer::Engine::automatic;
            else if (args[i] == "system") engine = TextRecognizer::Engine::system;
            else return usageError("unknown engine \"" + args[i] + "\" (automatic or system)");
        } else if (!arg.empty() && arg[0] == '-') {
            return usageError("unknown option " + arg + " (see read-text --help)");
        } else if (path) {
            return usageError("read-text takes one image");
        } else {
            path = arg;
        }
    }
    if (!path) return usageError("read-text needs an image (see read-text --help)");

    QImageReader imageReader(QString::fromStdString(*path));
    imageReader.setAutoTransform(true);
    QImage image = imageReader.read();
    if (image.isNull()) return failure(*path + ": " + imageReader.errorString().toStdString());
    if (image.width() < 1 || image.height() < 1) return failure(*path + ": the image has no pixels");

    TextDefaults defaults;
    TextModelStore store(defaults);
    TextReadWorker worker;
    TesseractTextReader system;
    TextRecognizer recognizer(store, worker, system);
    TextRecognizer::Reading reading;
    try {
        reading = recognizer.recognizeReading(image, engine);
    } catch (const std::exception& e) {
        return failure(*path + ": " + e.what());
    }
    worker.cancelPending();  // a one-shot command keeps no warm worker
    if (json) {
        Json out = Json::object();
        out["engine"] = reading.engine;
        out["fragments"] = toJson(reading.fragments);
        out["text"] = reading.text;
        std::cout << dumpJson(out) << "\n";
    } else if (!reading.text.empty()) {
        std::cout << reading.text << "\n";
    }
    return exitSuccess;
}

}  // namespace halvane::cli
