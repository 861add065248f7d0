// When does a tone sound in a track? A single-bin DFT over overlapping windows, normalised by
// each window's own energy so that it measures how much of the signal lies at the frequency,
// not how loud it is; a run of windows over a threshold becomes one match.
#pragma once

#include <cstdint>
#include <vector>

#include "audio/Extended.h"
#include "audio/Track.h"

namespace orvane::audio {

struct FrequencyMatch {
    uint64_t startFrame = 0;
    uint64_t endFrame = 0;  // exclusive
};

uint64_t audioFrameCount(const TrackAudioView& view);
// The sample scaled to -1..1; 0 without data or for a channel out of range. The frame must exist.
double audioSampleAt(const TrackAudioView& view, uint64_t frame, uint16_t channel);
// The share of the window's energy at `hz`, the strongest over the channels; 0 for a window of
// 3 frames or fewer.
double frequencyStrengthInWindow(const TrackAudioView& view, double hz, uint64_t start, uint64_t end);
// The strength at `hz` and, with a tolerance, at hz -+ tolerance and -+ tolerance / 2.
double strongestFrequencyMatch(const TrackAudioView& view, double hz, double tolerance, uint64_t start, uint64_t end);
std::vector<FrequencyMatch> findFrequencyMatches(const TrackAudioView& view, double hz, double tolerance,
                                                 uint64_t minimumDurationMS, double threshold);
uint64_t ceilToUint64(Extended value);

}  // namespace orvane::audio
