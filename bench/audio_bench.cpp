// The sound subsystem's hot loops on 10 seconds of 44.1 kHz stereo: the tone search as a
// real-time factor (seconds of audio searched per second of work), and mixing and re-pitching
// in megasamples per second (output samples, both channels counted).
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>

#include "audio/FrequencySearch.h"
#include "audio/Track.h"

namespace {

using namespace orvane::audio;
using Clock = std::chrono::steady_clock;
constexpr double kSecondsPerCase = 1.0;
constexpr int32_t kTrackMs = 10000;

double seconds(Clock::time_point since) { return std::chrono::duration<double>(Clock::now() - since).count(); }

// Runs `one` until a second has passed; calls per second.
template <typename F>
double perSecond(F one) {
    long calls = 0;
    const auto start = Clock::now();
    do {
        one();
        ++calls;
    } while (seconds(start) < kSecondsPerCase);
    return double(calls) / seconds(start);
}

// 10 s of quiet noise with a 440 Hz tone from 3 s to 7 s on the left.
Track* searchSignal() {
    Track* track = form(0, kTrackMs, "sine", "both");
    Track* tone = form(440, 4000, "sine", "left");
    std::mt19937 random(1);
    std::uniform_int_distribution<int> noise(-2000, 2000);
    for (int16_t& s : track->samples) s = int16_t(noise(random));
    add(track, tone, 3000);
    close(tone);
    return track;
}

}  // namespace

int main() {
    Track* signal = searchSignal();
    TrackAudioView view;
    inspect(signal, &view);
    const double audioSeconds = double(audioFrameCount(view)) / view.sampleRate;
    std::printf("%-44s %14s %10s\n", "case", "rate", "matches");
    for (double hz : {440.0, 100.0, 5000.0}) {
        size_t matches = 0;
        const double calls = perSecond([&] { matches = findFrequencyMatches(view, hz, std::max(5.0, hz * 0.02), 0, 0.55).size(); });
        char name[64];
        std::snprintf(name, sizeof name, "findFrequency %.0f Hz, 10 s stereo", hz);
        std::printf("%-44s %12.0fx %10zu\n", name, calls * audioSeconds, matches);
    }
    close(signal);

    const double samples = 44100.0 * 2 * kTrackMs / 1000;
    Track* target = form(440, kTrackMs, "saw", "both");
    Track* same = form(660, kTrackMs, "sine", "both");
    Track* half = form(330, kTrackMs, "square", "both");
    half->sampleRate = 22050;  // the same samples heard at half the rate: 20 s
    const double addSame = perSecond([&] { add(target, same, 0); });
    const double addHalf = perSecond([&] { add(target, half, 0); });
    std::printf("%-44s %10.1f Ms/s\n", "add, 10 s into 10 s, same rate", addSame * samples / 1e6);
    std::printf("%-44s %10.1f Ms/s\n", "add, 22050 Hz source into 44100 Hz", addHalf * samples / 1e6);
    const double pitchUp = perSecond([&] { pitch(same, 1.5); });
    const double pitchDown = perSecond([&] { pitch(target, 0.75); });
    std::printf("%-44s %10.1f Ms/s\n", "pitch 1.5 of 10 s", pitchUp * samples / 1e6);
    std::printf("%-44s %10.1f Ms/s\n", "pitch 0.75 of 10 s", pitchDown * samples / 1e6);
    close(target);
    close(same);
    close(half);
    return 0;
}
