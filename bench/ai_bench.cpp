// The text generator through its C++ face: training throughput on a 10 MB text at orders 3 and 6,
// 1 MB generated from each model, the heap allocations that training makes per byte once the
// model has stopped growing (which must be none), and the latency of a small background job
// from submission to the poll that collects it.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ai/JobPool.h"
#include "ai/MarkovModel.h"

static std::atomic<long> allocations{0};

void* operator new(std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

using Clock = std::chrono::steady_clock;
using namespace orvane;

double seconds(Clock::time_point since) { return std::chrono::duration<double>(Clock::now() - since).count(); }
double cpuSeconds() { return double(std::clock()) / CLOCKS_PER_SEC; }

// Prose-like text: sentences of words drawn with a skewed distribution from a fixed vocabulary
// of made-up words, so that the model has the branching of real text.
std::string proseText(size_t size, uint32_t seed) {
    std::mt19937 generator(seed);
    const std::string letters = "etaoinshrdlcumwfgypbvkjxqz";
    std::vector<std::string> words;
    for (int i = 0; i < 3000; ++i) {
        std::string word;
        const int length = 2 + int(generator() % 8);
        for (int j = 0; j < length; ++j) word += letters[std::min<size_t>(generator() % 13 + generator() % 14, 25)];
        words.push_back(word);
    }
    std::string text;
    text.reserve(size + 64);
    int inSentence = 0;
    while (text.size() < size) {
        // Low indices far more often than high ones.
        const size_t index = size_t(double(words.size()) * std::pow(double(generator()) / 4294967296.0, 3.0));
        std::string word = words[index];
        if (inSentence == 0) word[0] = char(word[0] - 32);
        text += word;
        if (++inSentence > 6 && generator() % 5 == 0) {
            text += generator() % 4 ? ". " : ".\n";
            inSentence = 0;
        } else {
            text += generator() % 9 ? " " : ", ";
        }
    }
    text.resize(size);
    return text;
}

// Allocations made by training on `repeats` copies of a short text: once the first copy is
// counted, the model no longer grows.
long trainingAllocations(const std::string& base, int repeats, int32_t order) {
    std::string text;
    for (int i = 0; i < repeats; ++i) text += base;
    const long before = allocations.load();
    const AIModel model = aiTrainModel(text, order);
    return allocations.load() - before;
}

}  // namespace

int main() {
    const std::string text = proseText(10 << 20, 1);
    // Wall and CPU time both: on a shared machine the CPU time is the steadier of the two.
    std::printf("%-6s %10s %18s %20s %18s\n", "order", "states", "train MB/s wall/cpu", "gen 1 MB s wall/cpu",
                "gen MB/s wall/cpu");
    for (int32_t order : {3, 6}) {
        auto start = Clock::now();
        double cpuStart = cpuSeconds();
        const AIModel model = aiTrainModel(text, order);
        const double trainWall = seconds(start), trainCpu = cpuSeconds() - cpuStart;
        start = Clock::now();
        cpuStart = cpuSeconds();
        const std::string output = aiGenerateTextImpl(false, "", model, 1 << 20, false, "", order);
        const double genWall = seconds(start), genCpu = cpuSeconds() - cpuStart;
        const double megabytes = double(output.size()) / (1 << 20);
        std::printf("%-6d %10zu %9.1f/%-8.1f %10.3f/%-9.3f %9.2f/%-8.2f\n", order, model.size(), 10.0 / trainWall,
                    10.0 / trainCpu, genWall, genCpu, megabytes / genWall, megabytes / genCpu);
    }

    int failures = 0;
    const std::string base = proseText(20000, 2);
    std::printf("\n%-10s %22s\n", "order", "allocs/byte (grown)");
    for (int32_t order : {3, 6, 24}) {
        const long small = trainingAllocations(base, 20, order), large = trainingAllocations(base, 120, order);
        // The longer text has one larger copy; everything else is the same model.
        const double perByte = double(large - small) / double(base.size() * 100);
        std::printf("%-10d %22.6f\n", order, perByte);
        if (large - small > 2) ++failures;
    }

    // A small request: a seed and 100 bytes, collected by a polling loop as a frame loop would,
    // without sleeping. The model is copied into the job and comes back in its result, so its
    // size shows in the latency: a tiny one and one of a few kilobytes of text.
    std::printf("\n");
    for (size_t corpus : {300u, 4000u}) {
        AIRequest request;
        request.hasTextInput = true;
        request.textInput = text.substr(0, 20);
        request.skipTraining = true;
        request.hasModel = true;
        request.model = aiTrainModel(text.substr(0, corpus), 3);
        request.dataSize = 3;
        std::vector<double> latencies;
        for (int i = 0; i < 2000; ++i) {
            const auto start = Clock::now();
            const int32_t id = aiSubmitJob(request);
            AIJobResult result;
            while (aiCheckJob(id, result) == AIJobState::Running) std::this_thread::yield();
            latencies.push_back(seconds(start) * 1e6);
            if (!result.ok) ++failures;
        }
        std::sort(latencies.begin(), latencies.end());
        std::printf("generateAsync + checkJob, 100 bytes from a %zu-state model: median %.1f us, p99 %.1f us "
                    "(%zu workers)\n",
                    request.model.size(), latencies[latencies.size() / 2],
                    latencies[latencies.size() * 99 / 100], aiThreadPool().size());
    }
    return failures == 0 ? 0 : 1;
}
