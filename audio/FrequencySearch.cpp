#include "audio/FrequencySearch.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace orvane::audio {

namespace {

constexpr double kTwoPi = 6.283185307179586;
constexpr double kSampleScale = 1.0 / 32768.0;  // a power of two: the same as dividing
constexpr double kSilentEnergy = 1e-10;
constexpr int kMaxProbes = 5;  // the frequency and four around it

bool hasData(const TrackAudioView& view) { return view.samples && view.channels; }

// What a window holds whatever the probed frequency: each channel's mean and the energy left
// after removing it. Summed frame by frame, as the per-frequency pass would, so the values are
// the same and the probes of one window share them.
struct WindowStats {
    std::vector<double> mean, energy;
    std::vector<double> re, im;

    template <int kChannels>
    void measureChannels(const TrackAudioView& view, uint64_t start, uint64_t end) {
        const int channels = kChannels ? kChannels : view.channels;
        const double n = double(end - start);
        const int16_t* first = view.samples + start * size_t(channels);
        for (int c = 0; c < channels; ++c) {
            double sum = 0.0;
            const int16_t* frame = first;
            for (uint64_t f = start; f < end; ++f, frame += channels) sum += frame[c] * kSampleScale;
            const double m = sum / n;
            double squares = 0.0;
            frame = first;
            for (uint64_t f = start; f < end; ++f, frame += channels) {
                const double x = frame[c] * kSampleScale - m;
                squares += x * x;
            }
            mean[size_t(c)] = m;
            energy[size_t(c)] = squares;
        }
    }

    void measure(const TrackAudioView& view, uint64_t start, uint64_t end) {
        mean.assign(view.channels, 0.0);
        energy.assign(view.channels, 0.0);
        if (!hasData(view)) return;
        switch (view.channels) {
        case 1: return measureChannels<1>(view, start, end);
        case 2: return measureChannels<2>(view, start, end);
        default: return measureChannels<0>(view, start, end);
        }
    }

    // The single DFT bin at each of the probes' frequencies, each with its own phasor rotated by
    // a recurrence instead of a sine per frame. The probes share one pass over the window; each
    // probe's sums see the same operations in the same order as a pass of its own would.
    template <int kChannels, int kCount>
    void strengths(const TrackAudioView& view, const double* hz, int count, uint64_t start, uint64_t end, double* out) {
        const int channels = kChannels ? kChannels : view.channels;
        const int probes = kCount ? kCount : count;
        double c[kMaxProbes], s[kMaxProbes], phasorRe[kMaxProbes], phasorIm[kMaxProbes];
        for (int p = 0; p < probes; ++p) {
            const double omega = hz[p] * kTwoPi / double(view.sampleRate);
            c[p] = std::cos(omega);
            s[p] = std::sin(omega);
            phasorRe[p] = 1.0;
            phasorIm[p] = 0.0;
        }
        // Fixed counts: sums on the stack, where the compiler can keep them in registers.
        double fixedRe[kChannels && kCount ? kChannels * kCount : 1] = {};
        double fixedIm[kChannels && kCount ? kChannels * kCount : 1] = {};
        double* sumRe = fixedRe;
        double* sumIm = fixedIm;
        if (!(kChannels && kCount)) {
            re.assign(size_t(probes) * size_t(channels), 0.0);
            im.assign(size_t(probes) * size_t(channels), 0.0);
            sumRe = re.data();
            sumIm = im.data();
        }
        if (hasData(view)) {
            const int16_t* frame = view.samples + start * size_t(channels);
            for (uint64_t f = start; f < end; ++f, frame += channels) {
                for (int ch = 0; ch < channels; ++ch) {
                    const double x = frame[ch] * kSampleScale - mean[size_t(ch)];
                    for (int p = 0; p < probes; ++p) {
                        sumRe[ch * probes + p] += x * phasorRe[p];
                        sumIm[ch * probes + p] += x * phasorIm[p];
                    }
                }
                for (int p = 0; p < probes; ++p) {
                    const double nextRe = phasorRe[p] * c[p] - phasorIm[p] * s[p];
                    phasorIm[p] = phasorIm[p] * c[p] + phasorRe[p] * s[p];
                    phasorRe[p] = nextRe;
                }
            }
        }
        const double n = double(end - start);
        for (int p = 0; p < probes; ++p) {
            double best = 0.0;
            for (int ch = 0; ch < channels; ++ch) {
                const double a = sumRe[ch * probes + p], b = sumIm[ch * probes + p];
                if (energy[size_t(ch)] > kSilentEnergy) best = std::max(best, 2.0 * (a * a + b * b) / (n * energy[size_t(ch)]));
            }
            out[p] = best;
        }
    }

    template <int kChannels>
    void strengthsFor(const TrackAudioView& view, const double* hz, int count, uint64_t start, uint64_t end, double* out) {
        switch (count) {
        case 1: return strengths<kChannels, 1>(view, hz, count, start, end, out);
        case 3: return strengths<kChannels, 3>(view, hz, count, start, end, out);
        case 5: return strengths<kChannels, 5>(view, hz, count, start, end, out);
        default: return strengths<kChannels, 0>(view, hz, count, start, end, out);
        }
    }

    // The largest strength over the probes; a probe at 0 Hz or below counts as 0.
    double strongestOf(const TrackAudioView& view, const double* probes, int count, uint64_t start, uint64_t end) {
        double hz[kMaxProbes], found[kMaxProbes];
        int kept = 0;
        for (int p = 0; p < count; ++p)
            if (probes[p] > 0.0) hz[kept++] = probes[p];
        if (kept == 0 || end <= start || view.sampleRate == 0 || end - start <= 3) return 0.0;
        switch (view.channels) {
        case 1: strengthsFor<1>(view, hz, kept, start, end, found); break;
        case 2: strengthsFor<2>(view, hz, kept, start, end, found); break;
        default: strengths<0, 0>(view, hz, kept, start, end, found); break;
        }
        return *std::max_element(found, found + kept);
    }

    double strongest(const TrackAudioView& view, double hz, double tolerance, uint64_t start, uint64_t end) {
        if (end <= start || end - start <= 3 || view.sampleRate == 0) return 0.0;  // every probe would be 0
        measure(view, start, end);
        double probes[kMaxProbes] = {hz};
        int count = 1;
        if (tolerance > 0.0) {
            const double nyquist = double(view.sampleRate) / 2.0;
            for (double probe : {hz - tolerance, hz - tolerance / 2.0, hz + tolerance / 2.0, hz + tolerance})
                if (probe > 0.0 && probe < nyquist) probes[count++] = probe;
        }
        return strongestOf(view, probes, count, start, end);
    }
};

}  // namespace

uint64_t audioFrameCount(const TrackAudioView& view) { return view.channels ? view.sampleCount / view.channels : 0; }

double audioSampleAt(const TrackAudioView& view, uint64_t frame, uint16_t channel) {
    if (!hasData(view) || channel >= view.channels) return 0.0;
    return view.samples[frame * view.channels + channel] / 32768.0;
}

double frequencyStrengthInWindow(const TrackAudioView& view, double hz, uint64_t start, uint64_t end) {
    if (!(hz > 0.0) || end <= start || view.sampleRate == 0 || end - start <= 3) return 0.0;
    WindowStats stats;
    stats.measure(view, start, end);
    return stats.strongestOf(view, &hz, 1, start, end);
}

double strongestFrequencyMatch(const TrackAudioView& view, double hz, double tolerance, uint64_t start, uint64_t end) {
    WindowStats stats;
    return stats.strongest(view, hz, tolerance, start, end);
}

uint64_t ceilToUint64(Extended value) {
    constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
    if (!(value > Extended(0))) return 0;
    if (value >= Extended(kMax)) return kMax;
    const uint64_t whole = uint64_t(value);
    return Extended(whole) < value ? whole + 1 : whole;
}

std::vector<FrequencyMatch> findFrequencyMatches(const TrackAudioView& view, double hz, double tolerance,
                                                 uint64_t minimumDurationMS, double threshold) {
    std::vector<FrequencyMatch> matches;
    const uint64_t frames = audioFrameCount(view);
    if (!view.samples || frames == 0 || view.sampleRate == 0 || view.channels == 0) return matches;

    const uint64_t rate = view.sampleRate;
    const uint64_t minimumWindow = std::max<uint64_t>(8, rate / 50);                  // 20 ms
    const uint64_t maximumWindow = std::max<uint64_t>(minimumWindow, rate / 4);      // 250 ms
    const uint64_t wanted = ceilToUint64(Extended(rate) * Extended(8) / Extended(hz));  // 8 periods
    const uint64_t window = std::min(std::clamp(wanted, minimumWindow, maximumWindow), frames);
    const uint64_t hop = std::max<uint64_t>(1, window / 4);
    const uint64_t minimumFrames = ceilToUint64(Extended(rate) * Extended(minimumDurationMS) / Extended(1000));

    WindowStats stats;
    bool open = false;
    FrequencyMatch run;
    auto closeRun = [&] {
        if (run.endFrame > run.startFrame && run.endFrame - run.startFrame >= minimumFrames) matches.push_back(run);
        open = false;
    };
    for (uint64_t position = 0; position < frames;) {
        const uint64_t windowEnd = std::min(frames, position + window);
        if (windowEnd <= position) break;
        if (stats.strongest(view, hz, tolerance, position, windowEnd) >= threshold) {
            if (!open) run.startFrame = position;
            run.endFrame = windowEnd;
            open = true;
        } else if (open) {
            closeRun();
        }
        if (windowEnd == frames) break;
        position += hop;
    }
    if (open) closeRun();
    return matches;
}

}  // namespace orvane::audio
