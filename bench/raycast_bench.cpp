// Frames per second of the raycaster at 960 by 544 on the demo's map, for each sampling pitch
// and thread count, against the 60 frames a second a game needs; what starting and joining the
// threads costs a frame; the heap allocations per sample, which must be 0; and the projection
// renderer's frames per second on the same view, against its 120, with its allocations a frame.
#include <atomic>
#include <chrono>
#include <ctime>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "host/HostModules.h"
#include "host/ProcessObjects.h"
#include "image/ImageThreads.h"
#include "scene/Projection.h"
#include "scene/Raycast.h"

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
constexpr int32_t kWidth = 960, kHeight = 544;
constexpr double kTargetFps = 60;
constexpr double kSecondsPerCase = 1.5;

double seconds(Clock::time_point since) { return std::chrono::duration<double>(Clock::now() - since).count(); }

// Frames drawn per second over about kSecondsPerCase, after one frame of warming up.
double framesPerSecond(orvane::NuvraImage& frame, void (*render)(orvane::NuvraImage&) = orvane::renderScene) {
    render(frame);
    int frames = 0;
    const auto start = Clock::now();
    do {
        render(frame);
        ++frames;
    } while (seconds(start) < kSecondsPerCase);
    return frames / seconds(start);
}

long samplesPerFrame(int32_t pitch) {
    return long((kWidth + pitch - 1) / pitch) * long((kHeight + pitch - 1) / pitch);
}

long allocationsPerFrames(orvane::NuvraImage& frame, int frames) {
    const long before = allocations.load();
    for (int i = 0; i < frames; ++i) orvane::renderScene(frame);
    return allocations.load() - before;
}

// The raycaster's table, the cost of its threads and its allocations; true when allocations grow
// with the samples.
bool measureRaycast(orvane::NuvraImage& frame) {
    using namespace orvane;
    std::printf("%-6s %-8s %10s %14s %12s\n", "step", "threads", "fps", "samples/s", "vs 60 fps");
    double step4Frame = 0;
    for (int32_t pitch : {4, 2, 1}) {
        for (int32_t threads : {1, 2, 6}) {
            step = pitch;
            AllowedThreads = threads;
            const double fps = framesPerSecond(frame);
            if (pitch == 4 && threads == 6) step4Frame = 1.0 / fps;
            std::printf("%-6d %-8d %10.1f %14.0f %11.2fx\n", pitch, threads, fps, fps * double(samplesPerFrame(pitch)),
                        fps / kTargetFps);
        }
    }

    // Starting and joining 6 threads that do nothing, against a whole step-4 frame.
    const int rounds = 2000;
    const auto start = Clock::now();
    for (int i = 0; i < rounds; ++i) runCeilingBands(136, 6, [](int32_t, int32_t) {});
    const double threadCost = seconds(start) / rounds;
    std::printf("threads started and joined per frame (6): %.1f us, %.1f%% of a step-4 frame\n", threadCost * 1e6,
                100.0 * threadCost / step4Frame);

    // Allocations that grow with the number of samples: step 1 against step 4 at one thread count.
    AllowedThreads = 6;
    step = 4;
    const long coarse = allocationsPerFrames(frame, 5);
    step = 1;
    const long fine = allocationsPerFrames(frame, 5);
    const double perSample = double(fine - coarse) / double(5 * (samplesPerFrame(1) - samplesPerFrame(4)));
    std::printf("allocations per frame: %ld at step 4, %ld at step 1; per sample: %.6f\n", coarse / 5, fine / 5,
                perSample);
    return perSample > 0;
}

// The projection runs on one thread, so frames per processor second are its speed on a quiet
// machine even while other work shares this one.
void measureProjection(orvane::NuvraImage& frame) {
    using orvane::renderProjectionScene;
    renderProjectionScene(frame);
    int frames = 0;
    const std::clock_t cpuStart = std::clock();
    const auto start = Clock::now();
    do {
        renderProjectionScene(frame);
        ++frames;
    } while (seconds(start) < kSecondsPerCase);
    const double projected = frames / seconds(start);
    const double cpuFps = frames / (double(std::clock() - cpuStart) / CLOCKS_PER_SEC);
    const long before = allocations.load();
    renderProjectionScene(frame);
    std::printf("projection: %.1f fps (%.2fx of 120), %.1f per processor second, %ld allocations a frame\n", projected,
                projected / 120.0, cpuFps, allocations.load() - before);
}

}  // namespace

// With the argument "projection", only the projection is measured (as a profiler wants it).
int main(int argc, char** argv) {
    using namespace orvane;
    registerFunctions();
    engine.runScript("runFile('" + std::string(OT_DEMO_DIR) + "/scene.ov')\n");
    std::vector<uint8_t> pixels(size_t(kWidth) * kHeight * 4);
    NuvraImage frame{kWidth, kHeight, pixels.data(), 0, 0, nullptr};
    const bool projectionOnly = argc > 1 && std::string(argv[1]) == "projection";
    const bool growing = !projectionOnly && measureRaycast(frame);
    measureProjection(frame);
    return growing ? 1 : 0;
}
