#include "Capture/TextReading/PaddleTextReader.h"

#include "Support/AtomicFile.h"
#include "Support/Json.h"

#include <QPainter>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <cmath>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>

namespace halvane {

using ReadError = PaddleOCR::ReadError;

namespace {

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

// The nets take B, G, R floats per pixel; a premultiplied ARGB32 image is B, G, R, A bytes in memory.
std::vector<float> pixelsOf(const QImage& image) {
    if (image.isNull() || image.format() != QImage::Format_ARGB32_Premultiplied)
        throw ReadError(ReadError::Kind::pixelBuffer);
    const int width = image.width(), height = image.height();
    std::vector<float> pixels(static_cast<size_t>(width) * height * 3);
    float* out = pixels.data();
    for (int y = 0; y < height; ++y) {
        const uchar* in = image.constScanLine(y);
        for (int x = 0; x < width; ++x, in += 4, out += 3) {
            out[0] = in[0];
            out[1] = in[1];
            out[2] = in[2];
        }
    }
    return pixels;
}

QImage canvas(int width, int height, QColor fill) {
    QImage image(width, height, QImage::Format_ARGB32_Premultiplied);
    if (image.isNull()) throw ReadError(ReadError::Kind::pixelBuffer);
    image.fill(fill);
    return image;
}

// A recogniser canvas: grey, the crop drawn over its first `content` columns at the line height.
QImage lineCanvas(const QImage& crop, bool rotated, int content, int width) {
    const int height = PaddleOCR::lineHeight;
    QImage line = canvas(width, height, QColor(128, 128, 128));
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
    return line;
}

std::vector<std::uint8_t> luminanceOf(const QImage& image) {
    QImage grey = image.convertToFormat(QImage::Format_Grayscale8);
    const size_t width = static_cast<size_t>(grey.width());
    std::vector<std::uint8_t> luminance(width * grey.height());
    for (int y = 0; y < grey.height(); ++y) std::memcpy(&luminance[y * width], grey.constScanLine(y), width);
    return luminance;
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

// As many tiles or line reads at once as there are cores, at most four.
size_t coreThreads() {
    unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    return std::min<size_t>(cores, PaddleTextReader::maximumConcurrentLines);
}

// Runs job(index) for every index below `count` on `workers` threads, the calling one among them
// (each net call runs in its thread alone): each thread takes the next index until none is left,
// a stop is requested or a job fails. The first failure is rethrown once all threads are done.
void forEachOnCores(size_t count, size_t workers, std::stop_token stop, const std::function<void(size_t index)>& job) {
    std::atomic<size_t> next{0};
    std::atomic<bool> failed{false};
    std::exception_ptr firstError;
    std::mutex errorMutex;
    auto work = [&] {
        try {
            for (size_t i; !failed && !stop.stop_requested() && (i = next++) < count;) job(i);
        } catch (...) {
            std::lock_guard lock(errorMutex);
            if (!firstError) firstError = std::current_exception();
            failed = true;
        }
    };
    {
        std::vector<std::jthread> threads;
        for (size_t t = 1; t < std::min(workers, count); ++t) threads.emplace_back(work);
        work();
    }
    if (firstError) std::rethrow_exception(firstError);
}

}  // namespace

std::unique_ptr<PaddleTextReader> PaddleTextReader::load(const std::filesystem::path& directory) {
    Models models;
    models.characters = readCharacters(directory / charactersFile);
    try {
        models.nets = TextNets::load(directory / detectorFile, directory / recognizerFile);
    } catch (const TextNets::ModelError&) {
        throw ReadError(ReadError::Kind::invalidModel);
    }
    return std::make_unique<PaddleTextReader>(std::move(models));
}

PaddleTextReader::PaddleTextReader(Models models) : models_(std::move(models)) {}

PaddleTextReader::~PaddleTextReader() = default;

void PaddleTextReader::warmUp(const std::function<bool()>& enough) {
    // oneDNN sets a convolution up for each input size the first time it meets it (about 40 ms for
    // the recogniser's at one width); a prepared worker does that for the full detector tile and
    // the usual line widths while the user is still choosing what to read.
    if (enough && enough()) return;
    const int tile = PaddleOCR::tileSize;
    models_.nets->detect(pixelsOf(canvas(tile, tile, Qt::white)).data(), tile, tile);
    std::vector<int> widths;
    for (int width = PaddleOCR::recognizerWidth(0); width <= warmLineWidth; width = PaddleOCR::recognizerWidth(width + 1))
        widths.push_back(width);
    std::stop_source stop;
    forEachOnCores(widths.size(), coreThreads(), stop.get_token(), [&](size_t index) {
        if (enough && enough()) {
            stop.request_stop();
            return;
        }
        std::vector<float> line = pixelsOf(canvas(widths[index], PaddleOCR::lineHeight, QColor(128, 128, 128)));
        models_.nets->recognize(line.data(), 1, widths[index]);
    });
}

std::string PaddleTextReader::read(const QImage& image, std::stop_token stop) {
    return TextRecognizer::assemble(readFragments(image, stop));
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
    // Tiles are read at once, one per core; each writes its own share of the map.
    const size_t tiles = xs.size() * ys.size();
    forEachOnCores(tiles, coreThreads(), stop, [&](size_t index) {
        const size_t row = index / xs.size(), column = index % xs.size();
        std::vector<float> probability =
            models_.nets->detect(pixelsOf(scaled.copy(xs[column], ys[row], tw, th)).data(), tw, th);
        auto [x0, x1] = PaddleOCR::tileShare(xs, column, tw, size.width);
        auto [y0, y1] = PaddleOCR::tileShare(ys, row, th, size.height);
        for (int y = y0; y < y1; ++y) {
            const float* source = &probability[static_cast<size_t>(y) * tw];
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

    // Up to four lines at once, one per core.
    std::vector<std::optional<PaddleOCR::Line>> lines(boxes.size());
    forEachOnCores(boxes.size(), coreThreads(), stop, [&](size_t index) { lines[index] = readLine(image, boxes[index]); });
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

std::optional<PaddleOCR::Line> PaddleTextReader::readLine(const QImage& image, const PaddleOCR::Box& box) {
    QRect area = integralRect(box.rect, image.size());
    if (area.isEmpty()) return std::nullopt;
    QImage crop = image.copy(area);
    if (crop.isNull()) return std::nullopt;
    std::vector<PaddleOCR::Glyph> glyphs = recognize(crop, false);
    // A tall narrow box may be a line set vertically; the better of the two reads wins.
    if (crop.width() * 1.5 <= crop.height()) {
        std::vector<PaddleOCR::Glyph> turned = recognize(crop, true);
        if (meanConfidence(turned) > meanConfidence(glyphs)) glyphs = std::move(turned);
    }
    return PaddleOCR::cleaned(glyphs);
}

std::vector<PaddleOCR::Glyph> PaddleTextReader::recognize(const QImage& crop, bool rotated) {
    auto [content, canvasWidth] = rotated ? PaddleOCR::lineWidth(crop.height(), crop.width())
                                          : PaddleOCR::lineWidth(crop.width(), crop.height());
    // Read at the nearest wider of the few recogniser widths, the crop stretched by the difference
    // (at most an eighth): more grey after the line made its last mark less sure, and a full
    // stop or semicolon was then dropped as stray.
    const int width = PaddleOCR::recognizerWidth(canvasWidth);
    const int stretched = content + (width - canvasWidth);
    QImage line = lineCanvas(crop, rotated, stretched, width);
    TextNets::Steps steps = models_.nets->recognize(pixelsOf(line).data(), 1, width);
    if (steps.steps < 1) throw ReadError(ReadError::Kind::invalidModel);
    std::vector<PaddleOCR::Glyph> glyphs = PaddleOCR::decode(steps.indices, steps.scores, models_.characters);

    // Word gaps are measured on the line as drawn unstretched (stretched letter spacing passed for
    // word spaces) and then carried over to the stretched columns.
    QImage plain = width == canvasWidth ? line : lineCanvas(crop, rotated, content, canvasWidth);
    std::vector<PaddleOCR::Gap> gaps = PaddleOCR::wordGaps(luminanceOf(plain), canvasWidth, PaddleOCR::lineHeight, content);
    for (auto& gap : gaps) {
        gap.start = gap.start * stretched / content;
        gap.end = gap.end * stretched / content;
    }
    return PaddleOCR::withWordSpaces(glyphs, gaps, width / steps.steps);
}

}  // namespace halvane
