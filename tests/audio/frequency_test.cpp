// The tone search against a plain DFT written here with a sine and cosine per frame, and
// against tones that sox makes at known times.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "audio/FrequencySearch.h"
#include "audio/Track.h"
#include "support.h"

using namespace orvane::audio;
using namespace audio_test;

namespace {

struct Signal {
    std::vector<int16_t> samples;
    uint32_t rate = 44100;
    uint16_t channels = 2;
    TrackAudioView view() const {
        return TrackAudioView{samples.data(), samples.size(), rate, channels};
    }
};

// The strength by definition: the mean removed, one DFT bin, normalised by the window's energy,
// the strongest channel.
double referenceStrength(const TrackAudioView& view, double hz, uint64_t start, uint64_t end) {
    const uint64_t n = end - start;
    if (hz <= 0 || n <= 3 || view.sampleRate == 0) return 0;
    const double omega = 2 * M_PI * hz / view.sampleRate;
    double best = 0;
    for (uint16_t c = 0; c < view.channels; ++c) {
        long double mean = 0;
        for (uint64_t f = start; f < end; ++f) mean += view.samples[f * view.channels + c] / 32768.0L;
        mean /= n;
        long double re = 0, im = 0, energy = 0;
        for (uint64_t k = 0; k < n; ++k) {
            const long double x = view.samples[(start + k) * view.channels + c] / 32768.0L - mean;
            re += x * std::cos(omega * double(k));
            im += x * std::sin(omega * double(k));
            energy += x * x;
        }
        if (energy > 1e-10L) best = std::max(best, double(2 * (re * re + im * im) / (n * energy)));
    }
    return best;
}

void addTone(Signal& signal, uint16_t channel, double hz, double amplitude, double fromSeconds, double toSeconds) {
    const size_t frames = signal.samples.size() / signal.channels;
    for (size_t f = size_t(fromSeconds * signal.rate); f < std::min(frames, size_t(toSeconds * signal.rate)); ++f) {
        int16_t& s = signal.samples[f * signal.channels + channel];
        s = int16_t(std::lround(s + amplitude * 32767 * std::sin(2 * M_PI * hz * double(f) / signal.rate)));
    }
}

Signal silence(double seconds, uint32_t rate = 44100, uint16_t channels = 2) {
    Signal signal;
    signal.rate = rate;
    signal.channels = channels;
    signal.samples.assign(size_t(seconds * rate) * channels, 0);
    return signal;
}

// A sox-made WAV opened as a track.
struct SoxTrack {
    Track* track = nullptr;
    explicit SoxTrack(const std::string& effects) {
        static int count = 0;
        const std::string path = scratchPath("tone" + std::to_string(++count) + ".wav");
        EXPECT_EQ(std::system(("sox -D -V1 -n -r 44100 -c 2 -b 16 " + shellQuote(path) + " " + effects).c_str()), 0) << effects;
        track = openFile(path.c_str());
        EXPECT_NE(track, nullptr) << effects;
    }
    ~SoxTrack() { close(track); }
    TrackAudioView view() const {
        TrackAudioView v;
        inspect(track, &v);
        return v;
    }
};

double ms(uint64_t frames) { return frames * 1000.0 / 44100.0; }

}  // namespace

TEST(FrequencyStrength, MatchesAPlainDftAcrossSignalsWindowsAndFrequencies) {
    std::mt19937 random(7);
    Signal signal = silence(1.0);
    addTone(signal, 0, 440, 0.4, 0, 1);
    addTone(signal, 1, 1234.5, 0.3, 0.2, 0.9);
    std::uniform_int_distribution<int> noise(-3000, 3000);
    for (int16_t& s : signal.samples) s = int16_t(std::clamp(s + noise(random), -32768, 32767));
    const TrackAudioView view = signal.view();
    for (double hz : {440.0, 445.0, 1234.5, 100.0, 7000.0, 21000.0}) {
        for (uint64_t n : {4u, 5u, 64u, 882u, 2048u, 11025u}) {
            for (uint64_t start : {0u, 12345u, 33000u}) {
                const double ours = frequencyStrengthInWindow(view, hz, start, start + n);
                const double reference = referenceStrength(view, hz, start, start + n);
                // the phasor's drift over a quarter second stays far below what the threshold sees
                EXPECT_NEAR(ours, reference, 1e-9 + 1e-9 * reference) << hz << " Hz, " << n << " frames at " << start;
            }
        }
    }

    // A pure sine with whole periods in the window is 1; silence is 0; 3 frames are 0.
    Signal pure = silence(0.1);
    addTone(pure, 0, 441, 0.5, 0, 0.1);  // 100 frames a period
    EXPECT_NEAR(frequencyStrengthInWindow(pure.view(), 441, 0, 1000), 1.0, 1e-4);
    EXPECT_EQ(frequencyStrengthInWindow(silence(0.1).view(), 441, 0, 1000), 0.0);
    EXPECT_EQ(frequencyStrengthInWindow(pure.view(), 441, 10, 13), 0.0);
    EXPECT_EQ(frequencyStrengthInWindow(pure.view(), 0, 0, 1000), 0.0);
    EXPECT_EQ(frequencyStrengthInWindow(pure.view(), 441, 1000, 0), 0.0);
    EXPECT_EQ(frequencyStrengthInWindow(TrackAudioView{}, 441, 0, 1000), 0.0);

    // A DC offset changes nothing: the mean is removed.
    Signal offset = pure;
    for (size_t i = 0; i < offset.samples.size(); i += 2) offset.samples[i] = int16_t(offset.samples[i] + 5000);
    EXPECT_NEAR(frequencyStrengthInWindow(offset.view(), 441, 0, 1000), frequencyStrengthInWindow(pure.view(), 441, 0, 1000),
                1e-12);
}

TEST(FrequencyStrength, TheToleranceAddsFourProbesInsideTheBand) {
    // 600 Hz in 882 frames is 12 whole periods; 500 Hz is 10: a probe at 500 sees nothing.
    Signal tone = silence(0.02);
    addTone(tone, 0, 600, 0.5, 0, 0.02);
    const TrackAudioView view = tone.view();
    EXPECT_LT(strongestFrequencyMatch(view, 500, 0, 0, 882), 0.01);
    EXPECT_NEAR(strongestFrequencyMatch(view, 500, 100, 0, 882), 1.0, 0.01);   // probe at 600
    EXPECT_NEAR(strongestFrequencyMatch(view, 400, 200, 0, 882), 1.0, 0.01);   // probe at 600
    EXPECT_LT(strongestFrequencyMatch(view, 400, 150, 0, 882), 0.05);          // probes 250..550: none at 600

    // Probes at or above half the rate are skipped: a signal at exactly 4000 Hz of 8000 would
    // give 2 there, but 3900 with a tolerance of 100 only probes 3800, 3850, 3900 and 3950.
    Signal nyquist = silence(0.02, 8000, 1);
    for (size_t i = 0; i < nyquist.samples.size(); ++i) nyquist.samples[i] = i % 2 ? -10000 : 10000;
    EXPECT_NEAR(frequencyStrengthInWindow(nyquist.view(), 4000, 0, 160), 2.0, 1e-9);
    EXPECT_LT(strongestFrequencyMatch(nyquist.view(), 3900, 100, 0, 160), 0.01);
}

TEST(FrequencyMatches, RunsMinimumDurationAndTheTrackEnd) {
    // A short tone and a long one: the minimum duration drops the short one only. A tone from
    // the first frame: the sox tests.
    Signal two = silence(1.5);
    addTone(two, 1, 1000, 0.5, 0.1, 0.25);
    addTone(two, 1, 1000, 0.5, 0.6, 1.5);
    auto matches = findFrequencyMatches(two.view(), 1000, 20, 0, 0.55);
    ASSERT_EQ(matches.size(), 2u);
    EXPECT_NEAR(ms(matches[0].startFrame), 100, 21);
    EXPECT_NEAR(ms(matches[0].endFrame), 250, 21);
    EXPECT_EQ(matches[1].endFrame, 66150u);  // still sounding at the end
    EXPECT_LT(matches[0].endFrame, matches[1].startFrame);
    const auto longOnly = findFrequencyMatches(two.view(), 1000, 20, 200, 0.55);
    ASSERT_EQ(longOnly.size(), 1u);
    EXPECT_EQ(longOnly[0].startFrame, matches[1].startFrame);
    EXPECT_EQ(longOnly[0].endFrame, matches[1].endFrame);
    EXPECT_TRUE(findFrequencyMatches(two.view(), 1000, 20, 1000, 0.55).empty());
    EXPECT_TRUE(findFrequencyMatches(two.view(), 3000, 20, 0, 0.55).empty());

    // Shorter than 4 frames: every strength is 0.
    Signal tiny = silence(0.0);
    tiny.samples = {1000, 0, -1000, 0, 1000, 0};
    EXPECT_TRUE(findFrequencyMatches(tiny.view(), 11025, 0, 0, 0.01).empty());
    EXPECT_TRUE(findFrequencyMatches(TrackAudioView{}, 440, 5, 0, 0.55).empty());

    // The window of a 100 Hz tone at 8000 Hz: 8 periods = 640 frames, hop 160.
    Signal slow = silence(1.0, 8000, 1);
    addTone(slow, 0, 100, 0.5, 0.5, 1.0);
    matches = findFrequencyMatches(slow.view(), 100, 5, 0, 0.55);
    ASSERT_EQ(matches.size(), 1u);
    EXPECT_EQ(matches[0].startFrame % 160, 0u);
    EXPECT_GE(matches[0].startFrame, 4000u - 640u);
    EXPECT_LE(matches[0].startFrame, 4000u);
    EXPECT_EQ(matches[0].endFrame, 8000u);

    EXPECT_EQ(ceilToUint64(0), 0u);
    EXPECT_EQ(ceilToUint64(-3.5), 0u);
    EXPECT_EQ(ceilToUint64(0.25), 1u);
    EXPECT_EQ(ceilToUint64(2), 2u);
    EXPECT_EQ(ceilToUint64(Extended(uint64_t(1) << 60) + Extended(0.5)), (uint64_t(1) << 60) + 1);
    EXPECT_EQ(ceilToUint64(Extended(1e30)), std::numeric_limits<uint64_t>::max());
}

TEST(FrequencyMatches, FindsSoxTonesWhereTheySound) {
    const double window = 20;  // ms: 882 frames for these frequencies
    // 0.5 s of silence, then 440 Hz for 1 s, then 0.5 s of silence.
    {
        SoxTrack t("synth 1 sine 440 pad 0.5 0.5");
        const auto matches = findFrequencyMatches(t.view(), 440, 8.8, 0, 0.55);
        ASSERT_EQ(matches.size(), 1u);
        EXPECT_GE(ms(matches[0].startFrame), 500 - window);
        EXPECT_LE(ms(matches[0].startFrame), 500);
        EXPECT_GE(ms(matches[0].endFrame), 1500);
        EXPECT_LE(ms(matches[0].endFrame), 1500 + window);
        EXPECT_TRUE(findFrequencyMatches(t.view(), 880, 17.6, 0, 0.55).empty());
        EXPECT_TRUE(findFrequencyMatches(t.view(), 600, 12, 0, 0.55).empty());
    }
    // A tone on the left channel only, over a DC offset.
    {
        SoxTrack t("synth 1 sine 1000 pad 0.3 0.2 remix 1 0 vol 0.5 dcshift 0.2");
        const auto matches = findFrequencyMatches(t.view(), 1000, 20, 0, 0.55);
        ASSERT_EQ(matches.size(), 1u);
        EXPECT_NEAR(ms(matches[0].startFrame), 300, window);
        EXPECT_NEAR(ms(matches[0].endFrame), 1300, window);
    }
    // Two tones one after the other, and white noise, which holds no tone.
    {
        SoxTrack t("synth 0.4 sine 700 : synth 0.6 sine 1500");
        auto low = findFrequencyMatches(t.view(), 700, 14, 0, 0.55);
        auto high = findFrequencyMatches(t.view(), 1500, 30, 0, 0.55);
        ASSERT_EQ(low.size(), 1u);
        ASSERT_EQ(high.size(), 1u);
        EXPECT_EQ(low[0].startFrame, 0u);
        EXPECT_NEAR(ms(low[0].endFrame), 400, window);
        EXPECT_NEAR(ms(high[0].startFrame), 400, window);
        EXPECT_EQ(high[0].endFrame, 44100u);
        SoxTrack noise("synth 1 whitenoise vol 0.5");
        EXPECT_TRUE(findFrequencyMatches(noise.view(), 440, 8.8, 0, 0.55).empty());
    }
}
