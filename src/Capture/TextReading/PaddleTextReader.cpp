#include "Capture/TextReading/PaddleTextReader.h"

#include "Support/AtomicFile.h"
#include "Support/Json.h"

#include <opencv2/imgproc.hpp>

#include <QPainter>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <cmath>
#include <exception>
#include <future>
#include <functional>
#include <thread>

namespace halvane {

using ReadError = PaddleOCR::ReadError;

namespace {

cv::dnn::Net loadNet(const std::vector<unsigned char>& bytes) {
    try {
        cv::dnn::Net net = cv::dnn::readNetFromONNX(bytes);
        if (net.empty()) throw ReadError(ReadError::Kind::invalidModel);
        return net;
    } catch (const cv::Exception&) {
        throw ReadError(ReadError::Kind::invalidModel);
    }
}

std::vector<unsigned char> readBytes(const std::filesystem::path& path) {
    try {
        std::string text = readFile(path);
        return {text.begin(), text.end()};
    } catch (const HalvaneError&) {
        throw ReadError(ReadError::Kind::invalidModel);
    }
}

std::vector<std::string> readCharacters(const std::filesystem::path& path) {
    try {
        std::vector<std::string> characters;
        fromJson(parseJson(readFile(path)), characters);
        if (characters.empty()) throw ReadError(ReadError::Kind::invalidModel);
        return characters;
    } catch (const HalvaneError&) {
        throw ReadError(ReadError::Kind::invalidModel);
    } catch (const JsonDecodeError&) {
        throw ReadError(ReadError::Kind::invalidModel);
    }
}

// The models take BGR bytes as floats, NCHW; a premultiplied ARGB32 image is BGRA in memory.
cv::Mat blobFromBgra(const QImage& image) {
    if (image.isNull() || image.format() != QImage::Format_ARGB32_Premultiplied)
        throw ReadError(ReadError::Kind::pixelBuffer);
    cv::Mat bgra(image.height(), image.width(), CV_8UC4, const_cast<uchar*>(image.constBits()),
                 static_cast<size_t>(image.bytesPerLine()));
    cv::Mat bgr;
    cv::cvtColor(bgra, bgr, cv::COLOR_BGRA2BGR);
    return cv::dnn::blobFromImage(bgr);
}

QImage canvas(int width, int height, QColor fill) {
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    if (image.isNull()) throw ReadError(ReadError::Kind::pixelBuffer);
    image.fill(fill);
    return image;
}

// Values of a model output as the type the reader works in.
template <class T>
std::vector<T> valuesOf(const cv::Mat& output) {
    cv::Mat converted;
    output.reshape(1, 1).convertTo(converted, cv::DataType<T>::type);
    return std::vector<T>(converted.begin<T>(), converted.end<T>());
}

std::vector<std::int64_t> indicesOf(const cv::Mat& output) {
    std::vector<double> values = valuesOf<double>(output);
    std::vector<std::int64_t> indices(values.size());
    for (size_t i = 0; i < values.size(); ++i) indices[i] = static_cast<std::int64_t>(std::llround(values[i]));
    return indices;
}

double meanConfidence(const std::vector<PaddleOCR::Glyph>& glyphs) {
    if (glyphs.empty()) return 0;
    double sum = 0;
    for (const auto& g : glyphs) sum += g.confidence;
    return sum / glyphs.size();
}

// CGRectIntegral's rule: the smallest whole-pixel rectangle that holds the box, kept inside the image.
QRect integralRect(const Rect& r, const QSize& bounds) {
    int left = static_cast<int>(std::floor(r.minX())), top = static_cast<int>(std::floor(r.minY()));
    int right = static_cast<int>(std::ceil(r.maxX())), bottom = static_cast<int>(std::ceil(r.maxY()));
    return QRect(QPoint(left, top), QPoint(right - 1, bottom - 1)).intersected(QRect(QPoint(0, 0), bounds));
}

// OpenCV's own pool for the time the line threads run: each line's net works single-threaded, so
// that the line threads share the cores instead of each spreading over all of them (on two busy
// cores, four lines of two OpenCV threads each took 5-15% longer than two single-threaded ones).
class SingleThreadedNets {
public:
    SingleThreadedNets() : previous_(cv::getNumThreads()) { cv::setNumThreads(1); }
    ~SingleThreadedNets() { cv::setNumThreads(previous_); }
    SingleThreadedNets(const SingleThreadedNets&) = delete;
    SingleThreadedNets& operator=(const SingleThreadedNets&) = delete;

private:
    int previous_;
};

// As many line reads at once as there are cores, at most four.
size_t lineThreads() {
    unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    return std::min<size_t>(cores, PaddleTextReader::maximumConcurrentLines);
}

// Runs job(index, worker) for every index below `count` on `workers` threads, the calling one
// among them, each net single-threaded: each thread takes the next index until none is left, a
// stop is requested or a job fails. The first failure is rethrown once all threads are done.
void forEachOnCores(size_t count, size_t workers, std::stop_token stop,
                    const std::function<void(size_t index, size_t worker)>& job) {
    std::atomic<size_t> next{0};
    std::atomic<bool> failed{false};
    std::exception_ptr firstError;
    std::mutex errorMutex;
    auto work = [&](size_t worker) {
        try {
            for (size_t i; !failed && !stop.stop_requested() && (i = next++) < count;) job(i, worker);
        } catch (...) {
            std::lock_guard lock(errorMutex);
            if (!firstError) firstError = std::current_exception();
            failed = true;
        }
    };
    {
        SingleThreadedNets guard;
        std::vector<std::jthread> threads;
        for (size_t t = 1; t < workers; ++t) threads.emplace_back(work, t);
        if (workers > 0) work(0);
    }
    if (firstError) std::rethrow_exception(firstError);
}

}  // namespace

// Recogniser nets for the concurrent line reads: a net is not safe to run from two threads, so
// each read borrows one, and a new one is built only when all are busy.
class PaddleTextReader::RecognizerPool {
public:
    explicit RecognizerPool(const std::vector<unsigned char>& bytes) : bytes_(bytes) {}

    void put(cv::dnn::Net net) {
        std::lock_guard lock(mutex_);
        idle_.push_back(std::move(net));
    }

    cv::dnn::Net take() {
        {
            std::lock_guard lock(mutex_);
            if (!idle_.empty()) {
                cv::dnn::Net net = std::move(idle_.back());
                idle_.pop_back();
                return net;
            }
        }
        return loadNet(bytes_);
    }

private:
    const std::vector<unsigned char>& bytes_;
    std::mutex mutex_;
    std::vector<cv::dnn::Net> idle_;
};

std::unique_ptr<PaddleTextReader> PaddleTextReader::load(const std::filesystem::path& directory) {
    // The two models load concurrently; the recogniser is the larger one.
    Models models;
    models.detectorBytes = readBytes(directory / detectorFile);
    models.recognizerBytes = readBytes(directory / recognizerFile);
    models.characters = readCharacters(directory / charactersFile);
    auto detector = std::async(std::launch::async, [&] { return loadNet(models.detectorBytes); });
    cv::dnn::Net recognizer = loadNet(models.recognizerBytes);
    detector.get();  // proves the detector loads; the net for a tile size is built at the first read
    auto reader = std::make_unique<PaddleTextReader>(std::move(models));
    reader->recognizers_->put(std::move(recognizer));
    return reader;
}

PaddleTextReader::PaddleTextReader(Models models)
    : models_(std::move(models)), recognizers_(std::make_unique<RecognizerPool>(models_.recognizerBytes)) {}

PaddleTextReader::~PaddleTextReader() = default;

void PaddleTextReader::warmUp() {
    // OpenCV sets a net up (buffers, fused layers, packed weights) at its first forward pass; a
    // prepared worker does that while the user is still choosing what to read.
    const int tile = PaddleOCR::tileSize;
    for (cv::dnn::Net& detector : detectorsFor({tile, tile}, lineThreads())) {
        detector.setInput(blobFromBgra(canvas(tile, tile, Qt::white)), "image");
        detector.forward("probability");
    }
    std::vector<cv::dnn::Net> nets;
    for (size_t i = 0; i < lineThreads(); ++i) nets.push_back(recognizers_->take());
    QImage line = canvas(PaddleOCR::lineWidth(1, 1).canvas, PaddleOCR::lineHeight, QColor(128, 128, 128));
    for (auto& net : nets) {
        net.setInput(blobFromBgra(line), "image");
        std::vector<cv::Mat> outputs;
        net.forward(outputs, std::vector<cv::String>{"indices", "scores"});
        recognizers_->put(std::move(net));
    }
}

std::string PaddleTextReader::read(const QImage& image, std::stop_token stop) {
    return TextRecognizer::assemble(readFragments(image, stop));
}

std::vector<cv::dnn::Net> PaddleTextReader::detectorsFor(PaddleOCR::Extent tile, size_t count) {
    // The full 1024 x 1024 tile of any large image and the one size of a smaller one stay warm.
    constexpr size_t kept = 3;
    auto found = std::find_if(detectors_.begin(), detectors_.end(), [&](const auto& entry) { return entry.first == tile; });
    if (found == detectors_.end()) {
        if (detectors_.size() == kept) detectors_.pop_back();
        detectors_.insert(detectors_.begin(), {tile, {}});
    } else {
        std::rotate(detectors_.begin(), found, found + 1);
    }
    auto& nets = detectors_.front().second;
    while (nets.size() < count) nets.push_back(loadNet(models_.detectorBytes));
    return {nets.begin(), nets.begin() + std::ptrdiff_t(count)};
}

std::vector<std::uint16_t> PaddleTextReader::detect(const QImage& image, PaddleOCR::Extent size, std::stop_token stop) {
    const int tile = PaddleOCR::tileSize;
    int tw = std::min(size.width, tile), th = std::min(size.height, tile);
    std::vector<int> xs = PaddleOCR::tileOrigins(size.width, tile, PaddleOCR::tileOverlap);
    std::vector<int> ys = PaddleOCR::tileOrigins(size.height, tile, PaddleOCR::tileOverlap);
    std::vector<std::uint16_t> map(static_cast<size_t>(size.width) * size.height, 0);

    // The image over white at the working size, once; each tile is a window of it.
    QImage scaled = canvas(size.width, size.height, Qt::white);
    {
        QPainter painter(&scaled);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(QRectF(0, 0, size.width, size.height), image);
    }
    // Tiles are read at once, one per core, each by its own net: left to itself OpenCV kept the
    // detector on one core (its CPU time equalled its wall time). Each tile writes its own share.
    const size_t tiles = xs.size() * ys.size();
    std::vector<cv::dnn::Net> nets = detectorsFor({tw, th}, std::min(lineThreads(), tiles));
    forEachOnCores(tiles, nets.size(), stop, [&](size_t index, size_t worker) {
        const size_t row = index / xs.size(), column = index % xs.size();
        QImage window = scaled.copy(xs[column], ys[row], tw, th);
        cv::dnn::Net& detector = nets[worker];
        detector.setInput(blobFromBgra(window), "image");
        cv::Mat probability = detector.forward("probability");
        if (probability.dims != 4 || probability.size[2] != th || probability.size[3] != tw ||
            (probability.depth() != CV_32F && probability.depth() != CV_16F))
            throw ReadError(ReadError::Kind::invalidModel);
        cv::Mat plane(th, tw, probability.depth(), probability.ptr(), probability.step[2]);
        cv::Mat values;
        plane.convertTo(values, CV_32F);
        auto [x0, x1] = PaddleOCR::tileShare(xs, column, tw, size.width);
        auto [y0, y1] = PaddleOCR::tileShare(ys, row, th, size.height);
        for (int y = y0; y < y1; ++y) {
            const float* source = values.ptr<float>(y);
            std::uint16_t* target = &map[static_cast<size_t>(ys[row] + y) * size.width + xs[column]];
            for (int x = x0; x < x1; ++x) target[x] = PaddleOCR::halfFromFloat(source[x]);
        }
    });
    if (stop.stop_requested()) throw std::runtime_error("cancelled");
    return map;
}

std::vector<TextRecognizer::Fragment> PaddleTextReader::readFragments(const QImage& input, std::stop_token stop) {
    if (input.isNull() || input.width() < 1 || input.height() < 1) throw ReadError(ReadError::Kind::pixelBuffer);
    QImage image = input.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    if (image.isNull()) throw ReadError(ReadError::Kind::pixelBuffer);
    PaddleOCR::Extent size = PaddleOCR::detectionSize(image.width(), image.height());
    std::vector<std::uint16_t> map = detect(image, size, stop);
    std::vector<PaddleOCR::Box> boxes =
        PaddleOCR::boxes(map, size.width, size.height, size.width, Size{double(image.width()), double(image.height())});

    // Up to four lines at once, each thread with a recogniser of its own.
    std::vector<std::optional<PaddleOCR::Line>> lines(boxes.size());
    std::vector<cv::dnn::Net> nets;
    for (size_t t = std::min<size_t>(lineThreads(), boxes.size()); t > 0; --t) nets.push_back(recognizers_->take());
    try {
        forEachOnCores(boxes.size(), nets.size(), stop,
                       [&](size_t index, size_t worker) { lines[index] = readLine(image, boxes[index], nets[worker]); });
    } catch (...) {
        for (auto& net : nets) recognizers_->put(std::move(net));
        throw;
    }
    for (auto& net : nets) recognizers_->put(std::move(net));
    if (stop.stop_requested()) throw std::runtime_error("cancelled");

    std::vector<PaddleOCR::Item> items;
    for (size_t i = 0; i < boxes.size(); ++i)
        if (lines[i]) items.push_back({lines[i]->text, boxes[i].rect});
    items = PaddleOCR::withoutStrayMarks(items);

    double w = image.width(), h = image.height();
    std::vector<TextRecognizer::Fragment> fragments;
    for (const auto& item : items)
        fragments.push_back({item.text, Rect(item.rect.minX() / w, 1 - item.rect.maxY() / h,
                                             item.rect.width() / w, item.rect.height() / h)});
    return fragments;
}

std::optional<PaddleOCR::Line> PaddleTextReader::readLine(const QImage& image, const PaddleOCR::Box& box,
                                                         cv::dnn::Net& recognizer) {
    QRect area = integralRect(box.rect, image.size());
    if (area.isEmpty()) return std::nullopt;
    QImage crop = image.copy(area);
    if (crop.isNull()) return std::nullopt;
    std::vector<PaddleOCR::Glyph> glyphs = recognize(crop, false, recognizer);
    // A tall narrow box may be a line set vertically; the better of the two reads wins.
    if (crop.width() * 1.5 <= crop.height()) {
        std::vector<PaddleOCR::Glyph> turned = recognize(crop, true, recognizer);
        if (meanConfidence(turned) > meanConfidence(glyphs)) glyphs = std::move(turned);
    }
    return PaddleOCR::cleaned(glyphs);
}

std::vector<PaddleOCR::Glyph> PaddleTextReader::recognize(const QImage& crop, bool rotated,
                                                          cv::dnn::Net& recognizer) const {
    const int height = PaddleOCR::lineHeight;
    auto [content, width] = rotated ? PaddleOCR::lineWidth(crop.height(), crop.width())
                                    : PaddleOCR::lineWidth(crop.width(), crop.height());
    QImage line = canvas(width, height, QColor(128, 128, 128));
    {
        QPainter painter(&line);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        if (rotated) {
            // A quarter turn against the clock: the crop's top lands on the left.
            painter.translate(0, height);
            painter.rotate(-90);
            painter.drawImage(QRectF(0, 0, height, content), crop);
        } else {
            painter.drawImage(QRectF(0, 0, content, height), crop);
        }
    }
    recognizer.setInput(blobFromBgra(line), "image");
    std::vector<cv::Mat> outputs;
    recognizer.forward(outputs, std::vector<cv::String>{"indices", "scores"});
    if (outputs.size() != 2 || outputs[0].empty() || outputs[0].total() != outputs[1].total())
        throw ReadError(ReadError::Kind::invalidModel);
    std::vector<PaddleOCR::Glyph> glyphs =
        PaddleOCR::decode(indicesOf(outputs[0]), valuesOf<float>(outputs[1]), models_.characters);
    QImage grey = line.convertToFormat(QImage::Format_Grayscale8);
    std::vector<std::uint8_t> luminance(static_cast<size_t>(width) * height);
    for (int y = 0; y < height; ++y) std::memcpy(&luminance[static_cast<size_t>(y) * width], grey.constScanLine(y), width);
    int stepWidth = width / std::max<int>(1, static_cast<int>(outputs[0].total()));
    return PaddleOCR::withWordSpaces(glyphs, PaddleOCR::wordGaps(luminance, width, height, content), stepWidth);
}

}  // namespace halvane
