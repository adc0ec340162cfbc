// Text reading figures: character error rate of the PP-OCR reader and of Tesseract on rendered
// screenshots (by theme and text size), wall time of a 1920 x 1080 screenshot with about 45 lines
// through a cold and a warm worker, and the worker's start-up (model load) time.
//
// Needs the halvane-cli built next to this program (or HALVANE_CLI) as the worker executable.

#include "Capture/TextReading/PaddleTextReader.h"
#include "Capture/TextReading/TesseractTextReader.h"
#include "Capture/TextReading/TextModelStore.h"
#include "Capture/TextReading/TextReadWorker.h"
#include "../tests/support/TextSamples.h"

#include <benchmark/benchmark.h>

#include <QGuiApplication>

#include <sys/wait.h>

#include <chrono>
#include <cstdlib>
#include <thread>

using namespace halvane;
using namespace halvane::test;
namespace fs = std::filesystem;

namespace {

void ensureApplication() {
    static int argc = 1;
    static char name[] = "text_reading";
    static char* argv[] = {name, nullptr};
    static QGuiApplication* app = [] {
        setenv("QT_QPA_PLATFORM", "offscreen", 0);
        setenv("OMP_THREAD_LIMIT", "1", 0);
        return new QGuiApplication(argc, argv);
    }();
    (void)app;
}

const fs::path& modelFolder() {
    static const fs::path folder = [] {
        // Named after the archive's digest, so that a rebuilt archive is installed afresh.
        fs::path root = fs::temp_directory_path() / ("halvane-bench-text-models-" + TextModelStore::release.sha256.substr(0, 12));
        fs::path archive = fs::path(__FILE__).parent_path().parent_path() / "resources/text-models" /
                           (TextModelStore::release.name + TextModelStore::archiveExtension);
        if (!fs::exists(root / TextModelStore::release.name)) TextModelStore::installArchive(archive, TextModelStore::release, root);
        return root / TextModelStore::release.name;
    }();
    return folder;
}

fs::path workerExecutable() {
    if (const char* cli = std::getenv("HALVANE_CLI")) return cli;
    return TextReadWorker::currentExecutable().parent_path().parent_path() / "src" / "halvane-cli";
}

PaddleTextReader& paddle() {
    static std::unique_ptr<PaddleTextReader> reader = PaddleTextReader::load(modelFolder());
    return *reader;
}

TesseractTextReader& tesseract() {
    static TesseractTextReader reader(TesseractTextReader::defaultDataDirectory(), {"en_US"});
    return reader;
}

// The rendered set for one theme and text size: a form, code and prose.
std::vector<TextSample> samples(TextTheme theme, int size) {
    std::uint32_t seed = static_cast<std::uint32_t>(size * 7 + (theme == TextTheme::dark ? 1 : 0));
    int width = std::max(420, size * 28), height = std::max(140, size * 8);
    // A form needs room for its title, a row and the buttons.
    return {renderForm(width, std::max(height, size * 14 + 24), theme, size, seed), renderCode(width, height, theme, size, seed + 100),
            renderParagraph(width, height, theme, size, seed + 200)};
}

// HALVANE_BENCH_SHOW_TEXT=1 prints what was read against what was drawn, to find error sources.
void showMisread(const TextSample& sample, const std::string& text, double rate) {
    if (std::getenv("HALVANE_BENCH_SHOW_TEXT") && rate > 0)
        std::fprintf(stderr, "== %s CER %.2f%%\n-- expected:\n%s\n-- read:\n%s\n", sample.name.c_str(), 100 * rate,
                     sample.expected.c_str(), text.c_str());
}

template <class Read>
void errorRate(benchmark::State& state, Read read) {
    ensureApplication();
    TextTheme theme = state.range(0) ? TextTheme::dark : TextTheme::light;
    int size = static_cast<int>(state.range(1));
    std::vector<TextSample> set = samples(theme, size);
    double sum = 0;
    for (auto _ : state) {
        sum = 0;
        for (const auto& sample : set) {
            std::string text = read(sample.image);
            double rate = characterErrorRate(text, sample.expected);
            sum += rate;
            showMisread(sample, text, rate);
        }
    }
    state.counters["CER%"] = 100 * sum / set.size();
}

void BM_CharacterErrorRatePaddle(benchmark::State& state) {
    errorRate(state, [](const QImage& image) { return paddle().read(image); });
}

void BM_CharacterErrorRateTesseract(benchmark::State& state) {
    errorRate(state, [](const QImage& image) { return tesseract().read(image); });
}

// Large text on a full screen: the small samples above are enlarged twice for the detector
// (short side under 736), which a 1080p screenshot is not.
void BM_CharacterErrorRatePaddleFullScreen(benchmark::State& state) {
    ensureApplication();
    int size = static_cast<int>(state.range(0));
    std::vector<TextSample> set{renderCode(1920, 1080, TextTheme::dark, size, 5),
                                renderParagraph(1920, 1080, TextTheme::light, size, 6)};
    double sum = 0;
    for (auto _ : state) {
        sum = 0;
        for (const auto& sample : set) sum += characterErrorRate(paddle().read(sample.image), sample.expected);
    }
    state.counters["CER%"] = 100 * sum / set.size();
}

void sizesAndThemes(benchmark::internal::Benchmark* b) {
    for (int dark : {0, 1})
        for (int size : {10, 12, 16, 24, 32}) b->Args({dark, size});
    b->ArgNames({"dark", "px"})->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
}

TextSample fullScreen() { return renderCode(1920, 1080, TextTheme::light, 14, 99); }

void BM_ScreenshotColdWorker(benchmark::State& state) {
    ensureApplication();
    TextSample sample = fullScreen();
    double rate = 0;
    for (auto _ : state) {
        TextReadWorker worker(workerExecutable());
        worker.timeout = std::chrono::minutes(10);  // figures, not the interactive limit
        rate = characterErrorRate(worker.read(sample.image, modelFolder()), sample.expected);
        state.PauseTiming();
        worker.cancelPending();
        state.ResumeTiming();
    }
    state.counters["CER%"] = 100 * rate;
}

void BM_ScreenshotWarmWorker(benchmark::State& state) {
    ensureApplication();
    TextSample sample = fullScreen();
    TextReadWorker worker(workerExecutable());
    worker.timeout = std::chrono::minutes(10);
    double rate = 0;
    for (auto _ : state) {
        state.PauseTiming();
        worker.prepare(modelFolder());
        std::this_thread::sleep_for(std::chrono::seconds(8));  // the load overlaps with the user's picking
        state.ResumeTiming();
        rate = characterErrorRate(worker.read(sample.image, modelFolder()), sample.expected);
    }
    worker.cancelPending();
    state.counters["CER%"] = 100 * rate;
    state.counters["lines"] = static_cast<double>(std::count(sample.expected.begin(), sample.expected.end(), '\n') + 1);
}

void BM_ScreenshotTesseract(benchmark::State& state) {
    ensureApplication();
    TextSample sample = fullScreen();
    tesseract().read(sample.image);
    double rate = 0;
    for (auto _ : state) rate = characterErrorRate(tesseract().read(sample.image), sample.expected);
    state.counters["CER%"] = 100 * rate;
}

// The warm reader in this process, by stage: the detector over all tiles, then the whole read
// (detection, boxes and every line), so that lines = read - detection. Wall and CPU seconds: on a
// shared machine the CPU figure is the steadier one.
void BM_ScreenshotStages(benchmark::State& state) {
    ensureApplication();
    TextSample sample = fullScreen();
    QImage image = sample.image.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    PaddleOCR::Extent size = PaddleOCR::detectionSize(image.width(), image.height());
    paddle().read(image);
    auto wall = [] { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count(); };
    auto process = [] { return double(std::clock()) / CLOCKS_PER_SEC; };
    double detection = 0, detectionCpu = 0, total = 0, totalCpu = 0, rate = 0;
    std::vector<PaddleOCR::Box> boxes;
    for (auto _ : state) {
        double start = wall(), startCpu = process();
        std::vector<std::uint16_t> map = paddle().detect(image, size, {});
        detection += wall() - start;
        detectionCpu += process() - startCpu;
        boxes = PaddleOCR::boxes(map, size.width, size.height, size.width, Size{double(image.width()), double(image.height())});
        start = wall(), startCpu = process();
        std::string text = paddle().read(image);
        total += wall() - start;
        rate = characterErrorRate(text, sample.expected);
        showMisread(sample, text, rate);
        totalCpu += process() - startCpu;
    }
    double n = static_cast<double>(state.iterations());
    state.counters["detect_s"] = detection / n;
    state.counters["detect_cpu_s"] = detectionCpu / n;
    state.counters["read_s"] = total / n;
    state.counters["read_cpu_s"] = totalCpu / n;
    state.counters["CER%"] = 100 * rate;
    // The recogniser's work grows with the canvas widths of the lines.
    double columns = 0;
    for (const auto& box : boxes) columns += PaddleOCR::lineWidth(box.rect.width(), box.rect.height()).canvas;
    state.counters["lines"] = static_cast<double>(boxes.size());
    state.counters["columns"] = columns;
}

// How long a prepared worker takes to set its nets up (the full tile, the usual line widths) after
// loading. The convolutions' set-up is kept per process, so the figure holds when this runs first
// in its process: --benchmark_filter=BM_WarmUp.
void BM_WarmUp(benchmark::State& state) {
    ensureApplication();
    for (auto _ : state) {
        state.PauseTiming();
        std::unique_ptr<PaddleTextReader> reader = PaddleTextReader::load(modelFolder());
        state.ResumeTiming();
        reader->warmUp();
    }
}

// From launch to exit of a worker that loads the models and finds no request.
void BM_WorkerStartUp(benchmark::State& state) {
    std::string program = workerExecutable().string(), flag = TextReadWorker::flag, folder = modelFolder().string();
    for (auto _ : state) {
        pid_t pid = fork();
        if (pid == 0) {
            freopen("/dev/null", "r", stdin);
            execl(program.c_str(), program.c_str(), flag.c_str(), folder.c_str(), nullptr);
            _exit(127);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) state.SkipWithError("the worker failed");
    }
}

}  // namespace

BENCHMARK(BM_CharacterErrorRatePaddle)->Apply(sizesAndThemes);
BENCHMARK(BM_CharacterErrorRateTesseract)->Apply(sizesAndThemes);
BENCHMARK(BM_CharacterErrorRatePaddleFullScreen)->Arg(24)->Arg(32)->ArgName("px")->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(BM_ScreenshotColdWorker)->Iterations(2)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(BM_ScreenshotWarmWorker)->Iterations(2)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(BM_ScreenshotTesseract)->Iterations(2)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(BM_ScreenshotStages)->Iterations(2)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(BM_WarmUp)->Iterations(1)->Unit(benchmark::kSecond)->UseRealTime();
BENCHMARK(BM_WorkerStartUp)->Iterations(3)->Unit(benchmark::kSecond)->UseRealTime();
