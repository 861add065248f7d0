#include "audio/Track.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>

#include "audio/Extended.h"
#include "audio/Mixer.h"

namespace orvane::audio {

namespace {

constexpr double kTwoPi = 6.283185307179586;
constexpr int64_t kMaxFrames = std::numeric_limits<int64_t>::max();

bool parseShape(const char* name, WaveShape& shape) {
    if (!name) return false;
    if (std::strcmp(name, "square") == 0) shape = WaveShape::square;
    else if (std::strcmp(name, "sine") == 0) shape = WaveShape::sine;
    else if (std::strcmp(name, "saw") == 0) shape = WaveShape::saw;
    else return false;
    return true;
}

bool parseSide(const char* name, WaveSide& side) {
    if (!name) return false;
    if (std::strcmp(name, "left") == 0) side = WaveSide::left;
    else if (std::strcmp(name, "right") == 0) side = WaveSide::right;
    else if (std::strcmp(name, "both") == 0) side = WaveSide::both;
    else return false;
    return true;
}

// sampleAt for every channel of one frame position, with the same arithmetic, for the loops
// that read whole frames: the position is known to lie inside the track.
inline void interpolateFrame(const int16_t* samples, uint64_t frames, uint16_t channels, double position,
                             double* out) {
    const double whole = std::floor(position);
    const uint64_t first = uint64_t(whole);
    const uint64_t second = std::min(first + 1, frames - 1);
    const double t = position - whole;
    const int16_t* a = samples + first * channels;
    const int16_t* b = samples + second * channels;
    for (uint16_t c = 0; c < channels; ++c) out[c] = a[c] + (double(b[c]) - a[c]) * t;
}

// An edit that cannot get memory for its result fails and leaves the track as it was.
template <typename F>
bool withMemory(F edit) {
    try {
        return edit();
    } catch (const std::bad_alloc&) {
        return false;
    } catch (const std::length_error&) {
        return false;
    }
}

}  // namespace

int64_t millisecondsToFrames(int64_t ms, uint32_t sampleRate) {
    if (ms <= 0 || sampleRate == 0) return 0;
    const Extended x = Extended(ms) * Extended(sampleRate) / Extended(1000);
    if (x >= Extended(kMaxFrames)) return kMaxFrames;
    return int64_t(x + Extended(0.5));  // x > 0: truncating x + 0.5 rounds halves away from zero
}

uint64_t framesToMilliseconds(uint64_t frames, uint32_t sampleRate) {
    if (sampleRate == 0) return 0;
    const Extended x = Extended(frames) * Extended(1000) / Extended(sampleRate) + Extended(0.5);
    constexpr uint64_t kMax = std::numeric_limits<uint64_t>::max();
    if (x >= Extended(kMax)) return kMax;
    return uint64_t(x);
}

int16_t clampToS16(double x) {
    if (x <= -32768.0) return -32768;
    if (x >= 32767.0) return 32767;
    return int16_t(std::lround(x));
}

double sampleAt(const DecodedFile& file, double position, uint16_t channel) {
    const uint64_t frames = file.frameCount();
    if (file.channels == 0 || file.samples.empty() || !(position >= 0.0) || channel >= file.channels || frames == 0 ||
        position >= double(frames))
        return 0.0;
    const double whole = std::floor(position);
    const uint64_t first = uint64_t(whole);
    const uint64_t second = std::min(first + 1, frames - 1);
    const double a = file.samples[first * file.channels + channel];
    const double b = file.samples[second * file.channels + channel];
    return a + (b - a) * (position - whole);
}

DecodedFile resample(const DecodedFile& source, uint64_t frames, double step) {
    DecodedFile out;
    out.sampleRate = source.sampleRate;
    out.channels = source.channels;
    if (source.channels && frames > out.samples.max_size() / source.channels) throw std::length_error("resample");
    out.samples.assign(size_t(frames) * source.channels, 0);
    if (!(step > 0.0) || source.empty()) return out;
    const uint64_t sourceFrames = source.frameCount();
    const double end = double(sourceFrames);
    const uint16_t channels = source.channels;
    double frame[256];
    std::unique_ptr<double[]> wide;
    double* values = frame;
    if (channels > 256) {
        wide = std::make_unique<double[]>(channels);
        values = wide.get();
    }
    int16_t* target = out.samples.data();
    for (uint64_t i = 0; i < frames; ++i, target += channels) {
        const double position = step * double(i);
        if (position >= end) break;  // positions only grow: the rest stays silent
        interpolateFrame(source.samples.data(), sourceFrames, channels, position, values);
        for (uint16_t c = 0; c < channels; ++c) target[c] = clampToS16(values[c]);
    }
    return out;
}

void destroyMixerHandle(Track* track) {
    if (!track || !track->mixerHandle) return;
    Stop(track->mixerHandle);
    Close(track->mixerHandle);
    track->mixerHandle = nullptr;
}

void rebuildMixerHandle(Track* track) {
    if (!track) return;
    destroyMixerHandle(track);
    if (!track->empty() && track->channels == 2)
        track->mixerHandle = OpenPCMTrack(track->samples.data(), track->samples.size(), track->sampleRate, track->channels);
}

Track* openFile(const char* path) {
    if (!path) return nullptr;
    DecodedFile decoded;
    if (!wav::decodeFile(path, &decoded, wav::DecodeOptions{2}) || decoded.channels != 2 || decoded.sampleRate == 0)
        return nullptr;
    auto* track = new Track;
    static_cast<DecodedFile&>(*track) = std::move(decoded);
    rebuildMixerHandle(track);
    return track;
}

Track* form(int32_t frequency, int32_t lengthMs, const char* shapeName, const char* sideName) {
    WaveShape shape;
    WaveSide side;
    if (frequency < 0 || lengthMs < 0 || !parseShape(shapeName, shape) || !parseSide(sideName, side)) return nullptr;
    auto track = std::make_unique<Track>();
    track->sampleRate = kFormRate;
    track->channels = 2;
    const uint64_t frames = uint64_t(millisecondsToFrames(lengthMs, kFormRate));
    if (!withMemory([&] {
            track->samples.assign(size_t(frames) * 2, 0);
            return true;
        }))
        return nullptr;
    if (frequency > 0) {
        const bool left = side != WaveSide::right, right = side != WaveSide::left;
        int16_t* out = track->samples.data();
        for (uint64_t i = 0; i < frames; ++i, out += 2) {
            const double cycles = double(i) * double(frequency) / double(kFormRate);
            const double phase = cycles - std::floor(cycles);
            double value;
            switch (shape) {
            case WaveShape::square: value = phase < 0.5 ? 1.0 : -1.0; break;
            case WaveShape::sine: value = std::sin(cycles * kTwoPi); break;
            default: value = 2.0 * phase - 1.0; break;
            }
            const int16_t sample = clampToS16(value * 0.75 * 32767.0);  // 75% of full scale
            if (left) out[0] = sample;
            if (right) out[1] = sample;
        }
    }
    rebuildMixerHandle(track.get());
    return track.release();
}

bool inspect(const Track* track, TrackAudioView* view) {
    if (!view) return false;
    *view = TrackAudioView{};
    if (!track) return false;
    view->samples = track->samples.data();
    view->sampleCount = track->samples.size();
    view->sampleRate = track->sampleRate;
    view->channels = track->channels;
    return true;
}

// No emptiness check: a track of no samples makes a valid 44-byte file.
bool save(const Track* track, const char* path) { return track && wav::encodeFile(path, *track); }

bool add(Track* target, const Track* source, int64_t offsetMs) {
    if (!target || !source || offsetMs < 0 || target->channels != 2 || source->channels != 2 ||
        target->sampleRate == 0 || source->sampleRate == 0)
        return false;
    const uint64_t targetFrames = target->frameCount(), sourceFrames = source->frameCount();
    if (targetFrames == 0 || sourceFrames == 0) return true;
    const uint64_t start = uint64_t(millisecondsToFrames(offsetMs, target->sampleRate));
    if (start >= targetFrames) return true;
    const double ratio = double(source->sampleRate) / double(target->sampleRate);
    const double covered = std::ceil(double(sourceFrames) / ratio);
    const uint64_t room = targetFrames - start;
    const uint64_t count = covered < double(room) ? uint64_t(covered) : room;

    // A track mixed into itself hears itself as it was before the call, not as it is being changed.
    std::vector<int16_t> snapshot;
    const int16_t* from = source->samples.data();
    if (source == target) {
        if (!withMemory([&] {
                snapshot = source->samples;
                return true;
            }))
            return false;
        from = snapshot.data();
    }
    const double end = double(sourceFrames);
    int16_t* out = target->samples.data() + start * 2;
    for (uint64_t i = 0; i < count; ++i, out += 2) {
        const double position = ratio * double(i);
        if (position >= end) break;  // past the source's end it adds silence
        double values[2];
        interpolateFrame(from, sourceFrames, 2, position, values);
        out[0] = clampToS16(out[0] + values[0]);
        out[1] = clampToS16(out[1] + values[1]);
    }
    rebuildMixerHandle(target);
    return true;
}

bool trim(Track* track, int64_t startMs, int64_t endMs) {
    if (!track || startMs < 0 || endMs < 0 || endMs < startMs || track->sampleRate == 0 || track->channels == 0)
        return false;
    const uint64_t frames = track->frameCount();
    const uint64_t first = std::min<uint64_t>(uint64_t(millisecondsToFrames(startMs, track->sampleRate)), frames);
    const uint64_t last = std::max(first, std::min<uint64_t>(uint64_t(millisecondsToFrames(endMs, track->sampleRate)), frames));
    const bool done = withMemory([&] {
        const auto begin = track->samples.begin();
        std::vector<int16_t> kept(begin + ptrdiff_t(first * track->channels), begin + ptrdiff_t(last * track->channels));
        track->samples = std::move(kept);
        return true;
    });
    if (!done) return false;
    rebuildMixerHandle(track);
    return true;
}

namespace {

bool validFactor(const Track* track, double factor) { return track && std::isfinite(factor) && factor > 0.0; }

bool replaceSamples(Track* track, uint64_t frames, double factor) {
    const bool done = withMemory([&] {
        DecodedFile result = resample(*track, frames, factor);
        track->samples = std::move(result.samples);
        return true;
    });
    if (done) rebuildMixerHandle(track);
    return done;
}

}  // namespace

bool pitch(Track* track, double factor) {
    if (!validFactor(track, factor)) return false;
    const uint64_t frames = track->frameCount();
    if (factor == 1.0 || frames == 0) return true;
    return replaceSamples(track, frames, factor);
}

bool speed(Track* track, double factor) {
    if (!validFactor(track, factor)) return false;
    const uint64_t frames = track->frameCount();
    if (factor == 1.0 || frames == 0) return true;
    const double quotient = double(frames) / factor;
    // No memory holds 2^62 frames; llround would not even represent the count.
    if (quotient >= 4611686018427387904.0) return false;
    const uint64_t outFrames = quotient > 0.0 ? uint64_t(std::max(0LL, std::llround(quotient))) : 0;
    return replaceSamples(track, outFrames, factor);
}

bool play(Track* track, uint64_t offsetMs, bool flag) {
    return track && track->mixerHandle && Play(track->mixerHandle, offsetMs, flag);
}

uint64_t pause(Track* track) { return track && track->mixerHandle ? Stop(track->mixerHandle) : 0; }

uint64_t currentOffset(const Track* track) {
    return track && track->mixerHandle ? GetCurrentOffset(track->mixerHandle) : 0;
}

void close(Track* track) {
    if (!track) return;
    destroyMixerHandle(track);
    delete track;
}

void clear() { StopAll(); }

}  // namespace orvane::audio
