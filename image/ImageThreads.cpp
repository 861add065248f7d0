#include "image/ImageThreads.h"

#include <algorithm>
#include <thread>
#include <vector>

namespace orvane {

int32_t AllowedThreads = 6;
int32_t step = 4;

void runCeilingBands(int32_t rows, int32_t threads, const std::function<void(int32_t first, int32_t end)>& work) {
    if (rows <= 0) return;
    if (threads <= 1) {
        work(0, rows);
        return;
    }
    const int32_t band = rows / threads + (rows % threads != 0);
    // jthreads join on every way out, also when starting a later one throws.
    std::vector<std::jthread> workers;
    workers.reserve(size_t(threads));
    for (int64_t first = 0; first < rows; first += band)
        workers.emplace_back(work, int32_t(first), int32_t(std::min<int64_t>(rows, first + band)));
}

void runRemainderBands(int32_t rows, int32_t threads, const std::function<void(int32_t first, int32_t end)>& work) {
    if (rows <= 0) return;
    if (threads <= 1) {
        work(0, rows);
        return;
    }
    const int32_t base = rows / threads, longer = rows % threads;
    std::vector<std::jthread> workers;
    workers.reserve(size_t(std::min(threads, rows)));
    int32_t first = 0;
    for (int32_t i = 0; i < threads && first < rows; ++i) {
        const int32_t end = first + base + (i < longer);
        workers.emplace_back(work, first, end);
        first = end;
    }
}

}  // namespace orvane
