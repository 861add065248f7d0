#include "host/HeadlessRun.h"

#include <cstdio>
#include <fstream>
#include <sstream>

#include "host/HostModules.h"
#include "host/ProcessObjects.h"
#include "image/ImageFiles.h"
#include "window/WindowFacade.h"

namespace orvane {

HeadlessRun headlessRun;

bool loadReplay(const std::string& path, std::vector<ReplayEvent>& events, std::string& error) {
    std::ifstream in(path);
    if (!in) {
        error = "cannot read the replay file " + path;
        return false;
    }
    std::string text;
    for (int number = 1; std::getline(in, text); ++number) {
        std::istringstream line(text);
        std::string first;
        if (!(line >> first) || first[0] == '#') continue;
        ReplayEvent event;
        std::string kind;
        long long frame = -1;
        bool ok = std::sscanf(first.c_str(), "%lld", &frame) == 1 && frame >= 0 && (line >> kind >> event.action);
        event.frame = uint64_t(frame);
        if (ok && kind == "key") {
            event.kind = ReplayEvent::Key;
            ok = (event.action == "down" || event.action == "up") && (line >> event.key);
        } else if (ok && (kind == "mouse" || kind == "touch")) {
            event.kind = kind == "mouse" ? ReplayEvent::Mouse : ReplayEvent::Touch;
            ok = (event.action == "down" || event.action == "move" || event.action == "up") &&
                 (line >> event.x >> event.y);
        } else {
            ok = false;
        }
        std::string extra;
        if (!ok || (line >> extra) || (!events.empty() && event.frame < events.back().frame)) {
            error = path + ":" + std::to_string(number) + ": not an event in frame order: " + text;
            return false;
        }
        events.push_back(event);
    }
    return true;
}

int64_t headlessClockMs() { return headlessRun.fixedClock ? int64_t(headlessRun.framesShown) * kFrameMilliseconds : -1; }

bool headlessFrameLimitReached() {
    return headlessRun.frameLimit >= 0 && headlessRun.framesShown >= uint64_t(headlessRun.frameLimit);
}

void headlessFrameShown(const NuvraImage& image) {
    HeadlessRun& run = headlessRun;
    ++run.framesShown;
    if (run.fixedClock) engine.fixedClockMs = headlessClockMs();
    if (run.captureFolder.empty() || (run.framesShown - 1) % uint64_t(run.captureEvery) != 0) return;
    char name[32];
    std::snprintf(name, sizeof name, "/frame-%06llu.png", static_cast<unsigned long long>(run.framesShown));
    ot_save_png((run.captureFolder + name).c_str(), image.pixels, image.width, image.height);
}

void headlessDeliverInput(void* window) {
    HeadlessRun& run = headlessRun;
    for (; run.nextEvent < run.replay.size() && run.replay[run.nextEvent].frame <= run.framesShown; ++run.nextEvent) {
        const ReplayEvent& event = run.replay[run.nextEvent];
        if (event.kind == ReplayEvent::Key) ot_injectKey(window, event.key.c_str(), event.action == "down");
        else ot_injectPointer(window, event.kind == ReplayEvent::Touch, event.action.c_str(), event.x, event.y);
    }
}

}  // namespace orvane
