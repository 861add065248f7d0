// Runs that a test can reproduce and watch without a display: a frame limit, frame capture to
// PNG files, a replay of timed input events, and a clock that advances by frames shown.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "image/NuvraImage.h"

namespace orvane {

// One replayed event: at the first input poll after `frame` frames have been shown.
struct ReplayEvent {
    uint64_t frame = 0;
    enum Kind : uint8_t { Key, Mouse, Touch } kind = Key;
    std::string action;  // key: "down" or "up"; mouse and touch: "down", "move" or "up"
    std::string key;     // a key name, as the ORVANE_KEY_ globals and Sailfish.key name keys
    int32_t x = 0, y = 0;
};

struct HeadlessRun {
    int64_t frameLimit = -1;  // -1: none
    std::string captureFolder;
    int64_t captureEvery = 1;
    bool fixedClock = false;
    std::vector<ReplayEvent> replay;
    size_t nextEvent = 0;
    uint64_t framesShown = 0;
};

extern HeadlessRun headlessRun;

// Reads a replay file; false, with the line and the complaint in `error`, for a bad one.
bool loadReplay(const std::string& path, std::vector<ReplayEvent>& events, std::string& error);
// The frame limit has been reached: Metal.checkClose answers true.
bool headlessFrameLimitReached();
// After an image is shown: counts the frame, captures it when due, moves the fixed clock.
void headlessFrameShown(const NuvraImage& image);
// Before input is polled: delivers the replayed events that are due to the window.
void headlessDeliverInput(void* window);
// The fixed clock's milliseconds since start, or -1 when the clock is real.
int64_t headlessClockMs();

}  // namespace orvane
