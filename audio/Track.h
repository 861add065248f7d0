// Tracks: 16-bit PCM in memory that scripts read from WAV files, synthesise, mix, cut, re-pitch
// and save. Every edit works on the samples at the moment of the call, makes one new buffer at
// most, and reopens the track's mixer handle, so an edit during playback stops it.
#pragma once

#include <cstdint>

#include "audio/Wav.h"

namespace orvane::audio {

using wav::DecodedFile;

struct Track : DecodedFile {
    void* mixerHandle = nullptr;  // owned; null for a track with nothing to play
};

// A read-only look at a track's samples; sampleCount counts samples, not frames.
struct TrackAudioView {
    const int16_t* samples = nullptr;
    uint64_t sampleCount = 0;
    uint32_t sampleRate = 0;
    uint16_t channels = 0;
};

enum class WaveShape { square = 0, sine = 1, saw = 2 };
enum class WaveSide { left = 0, right = 1, both = 2 };

constexpr uint32_t kFormRate = 44100;

// Null for a file that does not decode; every track is stereo whatever the file holds.
Track* openFile(const char* path);
// Null for a negative frequency or length, or an unknown (or null) shape or side name.
Track* form(int32_t frequency, int32_t lengthMs, const char* shape, const char* side);
bool inspect(const Track* track, TrackAudioView* view);
bool save(const Track* track, const char* path);
bool add(Track* target, const Track* source, int64_t offsetMs);
bool trim(Track* track, int64_t startMs, int64_t endMs);
bool pitch(Track* track, double factor);
bool speed(Track* track, double factor);
bool play(Track* track, uint64_t offsetMs, bool flag);
uint64_t pause(Track* track);
uint64_t currentOffset(const Track* track);
void close(Track* track);
void clear();
void rebuildMixerHandle(Track* track);
void destroyMixerHandle(Track* track);

// Milliseconds to frames, rounded half away from zero, capped at 2^63 - 1; 0 for ms <= 0 or rate 0.
int64_t millisecondsToFrames(int64_t ms, uint32_t sampleRate);
// A frame position as milliseconds for scripts: frames * 1000 / rate + 0.5, truncated; 0 for rate 0.
uint64_t framesToMilliseconds(uint64_t frames, uint32_t sampleRate);
int16_t clampToS16(double x);
// Linear interpolation between neighbouring frames on raw sample values; 0 outside the track.
double sampleAt(const DecodedFile& file, double position, uint16_t channel);
// `frames` output frames read from the source at step * i; past the source's end is silence.
DecodedFile resample(const DecodedFile& source, uint64_t frames, double step);

}  // namespace orvane::audio
