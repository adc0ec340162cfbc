// The text model runtime module: TorchScript detector and recogniser run by libtorch. Built as a
// module of its own that the text reader opens (see Capture/TextReading/TextNets.h), so that only
// a process that reads text pays for starting libtorch.

#include "Capture/TextReading/TextNets.h"

#include <torch/csrc/jit/runtime/graph_executor.h>
#include <torch/script.h>

#include <omp.h>

#include <cstdio>
#include <exception>
#include <string>

namespace halvane {

namespace {

// The saved graphs are frozen and already in the form that runs fast; the executors' own profiling
// and rewriting would only specialise them to each new width, at a cost for every one.
void useGraphsAsSaved() {
    torch::jit::getProfilingMode() = false;
    torch::jit::getExecutorMode() = false;
    torch::jit::setGraphExecutorOptimize(false);
}

// A call runs in its thread alone: libtorch's and oneDNN's OpenMP parallelism would otherwise put
// a team of threads on every core under each of the reader's threads.
class CallingThreadOnly {
public:
    CallingThreadOnly() { omp_set_num_threads(1); }

private:
    torch::NoGradGuard noGrad_;
};

// libtorch's messages carry a C++ back trace after the first line; the reason is enough.
std::string firstLine(const std::exception& e) {
    std::string message = e.what();
    return message.substr(0, message.find('\n'));
}

template <class Call>
auto reportingPlainly(Call call) {
    try {
        return call();
    } catch (const std::exception& e) {
        throw std::runtime_error(firstLine(e));
    }
}

torch::Tensor pixelTensor(const float* pixels, int count, int height, int width) {
    // Interleaved pixels are the channels-last layout of [count, 3, height, width].
    return torch::from_blob(const_cast<float*>(pixels), {count, height, width, 3}, torch::kFloat32).permute({0, 3, 1, 2});
}

class TorchTextNets final : public TextNets {
public:
    TorchTextNets(torch::jit::Module detector, torch::jit::Module recognizer)
        : detector_(std::move(detector)), recognizer_(std::move(recognizer)) {}

    std::vector<float> detect(const float* pixels, int width, int height) override {
        return reportingPlainly([&] { return detectHere(pixels, width, height); });
    }

    Steps recognize(const float* pixels, int count, int width) override {
        return reportingPlainly([&] { return recognizeHere(pixels, count, width); });
    }

private:
    std::vector<float> detectHere(const float* pixels, int width, int height) {
        CallingThreadOnly only;
        torch::Tensor map = detector_.forward({pixelTensor(pixels, 1, height, width)}).toTensor();
        if (map.dim() != 4 || map.size(0) != 1 || map.size(1) != 1 || map.size(2) != height || map.size(3) != width)
            throw std::runtime_error("The detector's map has another shape than its tile");
        map = map.to(torch::kFloat32).contiguous();
        return std::vector<float>(map.data_ptr<float>(), map.data_ptr<float>() + map.numel());
    }

    Steps recognizeHere(const float* pixels, int count, int width) {
        CallingThreadOnly only;
        auto outputs = recognizer_.forward({pixelTensor(pixels, count, 48, width)}).toTuple();
        if (outputs->elements().size() != 2) throw std::runtime_error("The recogniser doesn't give indices and scores");
        torch::Tensor indices = outputs->elements()[0].toTensor().to(torch::kInt64).contiguous();
        torch::Tensor scores = outputs->elements()[1].toTensor().to(torch::kFloat32).contiguous();
        if (indices.dim() != 2 || indices.size(0) != count || !indices.sizes().equals(scores.sizes()))
            throw std::runtime_error("The recogniser's indices and scores don't match its lines");
        Steps steps;
        steps.steps = static_cast<int>(indices.size(1));
        steps.indices.assign(indices.data_ptr<std::int64_t>(), indices.data_ptr<std::int64_t>() + indices.numel());
        steps.scores.assign(scores.data_ptr<float>(), scores.data_ptr<float>() + scores.numel());
        return steps;
    }

    torch::jit::Module detector_;
    torch::jit::Module recognizer_;
};

torch::jit::Module loadModule(const char* path) {
    torch::jit::Module module = torch::jit::load(path, torch::kCPU);
    module.eval();
    return module;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) TextNets* halvaneLoadTextNets(const char* detector,
                                                                                const char* recognizer, char* error,
                                                                                std::size_t errorSize) {
    try {
        useGraphsAsSaved();
        return new TorchTextNets(loadModule(detector), loadModule(recognizer));
    } catch (const std::exception& e) {
        std::snprintf(error, errorSize, "%s", firstLine(e).c_str());
        return nullptr;
    }
}

}  // namespace halvane
