// Tracks where exact sample values say it best: synthesis, the time conversions, interpolation,
// mixing, cutting, re-pitching, and the clock mixer with handles freed, stopped or never made.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <limits>
#include <memory>
#include <thread>

#include "audio/Mixer.h"
#include "audio/Track.h"
#include "support.h"

using namespace orvane::audio;
using namespace audio_test;

namespace {

struct TrackCloser {
    void operator()(Track* track) const { close(track); }
};
using TrackPtr = std::unique_ptr<Track, TrackCloser>;

TrackPtr formed(int32_t frequency, int32_t lengthMs, const char* shape = "square", const char* side = "both") {
    return TrackPtr(form(frequency, lengthMs, shape, side));
}

// A stereo track of given frames, left = f(i), right = -f(i).
template <typename F>
TrackPtr built(uint32_t rate, size_t frames, F value) {
    TrackPtr track(new Track);
    track->sampleRate = rate;
    track->channels = 2;
    for (size_t i = 0; i < frames; ++i) {
        track->samples.push_back(int16_t(value(i)));
        track->samples.push_back(int16_t(-value(i)));
    }
    rebuildMixerHandle(track.get());
    return track;
}

int16_t left(const Track& t, size_t frame) { return t.samples[2 * frame]; }
int16_t right(const Track& t, size_t frame) { return t.samples[2 * frame + 1]; }

}  // namespace

TEST(Form, ShapesSidesAndLengths) {
    TrackPtr square = formed(440, 1000);
    ASSERT_TRUE(square);
    EXPECT_EQ(square->sampleRate, 44100u);
    EXPECT_EQ(square->channels, 2);
    EXPECT_EQ(square->frameCount(), 44100u);
    EXPECT_NE(square->mixerHandle, nullptr);
    size_t high = 0;
    for (int16_t s : square->samples) {
        ASSERT_TRUE(s == 24575 || s == -24575) << s;  // 75% of full scale
        high += s > 0;
    }
    EXPECT_NEAR(double(high) / double(square->samples.size()), 0.5, 0.01);

    // A quarter of the rate: four frames a period, phases 0, .25, .5, .75; 44.1 frames round to
    // 44. The first frames, left and right; the side not asked for stays silent.
    struct Case {
        const char* shape;
        const char* side;
        std::vector<int16_t> frames;
    };
    const Case cases[] = {
        {"square", "right", {0, 24575, 0, 24575, 0, -24575, 0, -24575, 0, 24575, 0, 24575, 0, -24575, 0, -24575}},
        {"saw", "left", {-24575, 0, -12288, 0, 0, 0, 12288, 0}},  // -0.5 * 0.75 * 32767 = -12287.6
        {"sine", "left", {0, 0, 24575, 0, 0, 0, -24575, 0}},
    };
    for (const Case& c : cases) {
        TrackPtr t = formed(11025, 1, c.shape, c.side);
        ASSERT_EQ(t->frameCount(), 44u);
        EXPECT_EQ(std::vector<int16_t>(t->samples.begin(), t->samples.begin() + ptrdiff_t(c.frames.size())), c.frames)
            << c.shape;
    }

    TrackPtr silent = formed(0, 500, "sine");
    EXPECT_EQ(silent->frameCount(), 22050u);
    for (int16_t s : silent->samples) ASSERT_EQ(s, 0);
    TrackPtr empty = formed(440, 0, "sine");
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->samples.empty());
    EXPECT_EQ(empty->mixerHandle, nullptr);
    EXPECT_FALSE(play(empty.get(), 0, true));
    EXPECT_EQ(pause(empty.get()), 0u);

    EXPECT_EQ(form(-1, 10, "sine", "both"), nullptr);
    EXPECT_EQ(form(440, -1, "sine", "both"), nullptr);
    for (const char* shape : {"triangle", static_cast<const char*>(nullptr)}) EXPECT_EQ(form(440, 10, shape, "both"), nullptr);
    for (const char* side : {"middle", static_cast<const char*>(nullptr)}) EXPECT_EQ(form(440, 10, "sine", side), nullptr);
}

TEST(TimeConversions, RoundingCapsAndWidePrecision) {
    EXPECT_EQ(millisecondsToFrames(0, 44100), 0);
    EXPECT_EQ(millisecondsToFrames(-5, 44100), 0);
    EXPECT_EQ(millisecondsToFrames(5, 0), 0);
    EXPECT_EQ(millisecondsToFrames(1, 22050), 22);  // 22.05
    EXPECT_EQ(millisecondsToFrames(1, 1500), 2);    // 1.5: halves away from zero
    EXPECT_EQ(millisecondsToFrames(1, 1499), 1);
    EXPECT_EQ(millisecondsToFrames(std::numeric_limits<int64_t>::max(), 4294967295u), std::numeric_limits<int64_t>::max());
    // 2^60 + 1 ms at 1000 Hz: a 64-bit float would lose the 1.
    EXPECT_EQ(millisecondsToFrames((int64_t(1) << 60) + 1, 1000), (int64_t(1) << 60) + 1);
    EXPECT_EQ(millisecondsToFrames((int64_t(1) << 53) + 1, 3000), 3 * ((int64_t(1) << 53) + 1));

    EXPECT_EQ(framesToMilliseconds(22050, 44100), 500u);
    EXPECT_EQ(framesToMilliseconds(1, 2000), 1u);  // 0.5 + 0.5
    EXPECT_EQ(framesToMilliseconds(1, 2001), 0u);
    EXPECT_EQ(framesToMilliseconds(123, 0), 0u);
    EXPECT_EQ(framesToMilliseconds((uint64_t(1) << 60) + 1, 1000), (uint64_t(1) << 60) + 1);
    EXPECT_EQ(framesToMilliseconds(std::numeric_limits<uint64_t>::max(), 1), std::numeric_limits<uint64_t>::max());

    EXPECT_EQ(clampToS16(32767.4), 32767);
    EXPECT_EQ(clampToS16(40000), 32767);
    EXPECT_EQ(clampToS16(-32768.6), -32768);
    EXPECT_EQ(clampToS16(2.5), 3);
    EXPECT_EQ(clampToS16(-2.5), -3);
}

TEST(Interpolation, SampleAtAndResample) {
    TrackPtr t = built(1000, 3, [](size_t i) { return int(i) * 100 + 100; });  // 100, 200, 300
    EXPECT_EQ(sampleAt(*t, 0.0, 0), 100.0);
    EXPECT_EQ(sampleAt(*t, 0.25, 0), 125.0);
    EXPECT_EQ(sampleAt(*t, 1.5, 1), -250.0);
    EXPECT_EQ(sampleAt(*t, 2.5, 0), 300.0);  // the last frame holds to the end
    EXPECT_EQ(sampleAt(*t, 3.0, 0), 0.0);
    EXPECT_EQ(sampleAt(*t, -0.1, 0), 0.0);
    EXPECT_EQ(sampleAt(*t, 1.0, 2), 0.0);
    EXPECT_EQ(sampleAt(DecodedFile{}, 0.0, 0), 0.0);

    // Steps between frames and past the end: the pitch test. What pitch cannot ask for:
    DecodedFile still = resample(*t, 2, 0.0);
    EXPECT_EQ(still.sampleRate, 1000u);
    EXPECT_EQ(still.samples, (std::vector<int16_t>{0, 0, 0, 0}));
    DecodedFile fromNothing = resample(DecodedFile{}, 2, 1.0);
    EXPECT_EQ(fromNothing.samples.size(), 0u);  // no channels: no samples
}

TEST(Add, ResamplesTheSourceIntoTheTargetAndNeverGrowsIt) {
    // A 22050 Hz source of 1 second fills exactly 1 second of a 44100 Hz target of 2 seconds.
    TrackPtr source = built(22050, 22050, [](size_t i) { return int(i % 1000); });
    TrackPtr target = built(44100, 88200, [](size_t) { return 7; });
    ASSERT_TRUE(add(target.get(), source.get(), 0));
    EXPECT_EQ(left(*target, 0), 7);
    EXPECT_EQ(left(*target, 2), 8);
    EXPECT_EQ(left(*target, 3), 9);  // 7 + 1.5 rounds away from zero
    EXPECT_EQ(right(*target, 3), -9);
    EXPECT_EQ(left(*target, 44098), 7 + 49);  // frame 22049 of the source
    EXPECT_EQ(left(*target, 44099), 7 + 49);  // the last source frame holds
    EXPECT_EQ(left(*target, 44100), 7);      // past the source's cover: untouched
    EXPECT_EQ(target->frameCount(), 88200u);

    // An offset in milliseconds of the target's rate; what does not fit is dropped.
    TrackPtr shortTarget = built(1000, 10, [](size_t) { return 0; });
    TrackPtr ones = built(1000, 10, [](size_t i) { return int(i) + 1; });
    ASSERT_TRUE(add(shortTarget.get(), ones.get(), 7));
    EXPECT_EQ(shortTarget->frameCount(), 10u);
    EXPECT_EQ(left(*shortTarget, 6), 0);
    EXPECT_EQ(left(*shortTarget, 7), 1);
    EXPECT_EQ(left(*shortTarget, 9), 3);

    // Full scale on full scale clips, never wraps.
    auto full = [](size_t i) { return i ? 30000 : 32767; };
    TrackPtr loud = built(44100, 2, full), loud2 = built(44100, 2, full);
    ASSERT_TRUE(add(loud.get(), loud2.get(), 0));
    EXPECT_EQ(loud->samples, (std::vector<int16_t>{32767, -32768, 32767, -32768}));

    // A track mixed into itself hears its old self.
    TrackPtr echo = built(1000, 6, [](size_t i) { return int(i) + 1; });  // 1..6
    ASSERT_TRUE(add(echo.get(), echo.get(), 2));
    for (size_t i = 0; i < 6; ++i) EXPECT_EQ(left(*echo, i), int(i) + 1 + (i >= 2 ? int(i) - 1 : 0)) << i;

    // Nothing to do is true and leaves the play clock alone; bad inputs are false.
    ASSERT_TRUE(play(target.get(), 5000, false));
    void* handle = target->mixerHandle;
    EXPECT_TRUE(add(target.get(), source.get(), 2000));  // at the end
    TrackPtr none = formed(440, 0);
    EXPECT_TRUE(add(target.get(), none.get(), 0));
    EXPECT_EQ(target->mixerHandle, handle);
    EXPECT_GE(currentOffset(target.get()), 5000u);
    EXPECT_TRUE(add(target.get(), source.get(), 1999));  // a real change reopens the handle: clock at 0
    EXPECT_EQ(currentOffset(target.get()), 0u);
    EXPECT_FALSE(add(nullptr, source.get(), 0));
    EXPECT_FALSE(add(target.get(), nullptr, 0));
    EXPECT_FALSE(add(target.get(), source.get(), -1));
    TrackPtr mono = built(44100, 3, [](size_t i) { return int(i); });
    mono->channels = 1;
    EXPECT_FALSE(add(target.get(), mono.get(), 0));
    EXPECT_FALSE(add(mono.get(), target.get(), 0));
}

TEST(Trim, KeepsTheFramesBetweenTheOffsets) {
    TrackPtr t = built(1000, 100, [](size_t i) { return int(i); });
    ASSERT_TRUE(trim(t.get(), 10, 20));
    ASSERT_EQ(t->frameCount(), 10u);
    EXPECT_EQ(left(*t, 0), 10);
    EXPECT_EQ(left(*t, 9), 19);  // the end is exclusive
    EXPECT_EQ(right(*t, 9), -19);
    ASSERT_TRUE(trim(t.get(), 5, 1000));  // limited to the frame count
    EXPECT_EQ(t->frameCount(), 5u);
    EXPECT_EQ(left(*t, 0), 15);
    ASSERT_TRUE(trim(t.get(), 900, 1000));  // both past the end: nothing left
    EXPECT_EQ(t->frameCount(), 0u);
    EXPECT_EQ(t->mixerHandle, nullptr);
    EXPECT_FALSE(trim(t.get(), -1, 5));
    EXPECT_FALSE(trim(t.get(), 5, -1));
    EXPECT_FALSE(trim(t.get(), 500, 100));
    EXPECT_FALSE(trim(nullptr, 0, 0));
}

TEST(PitchAndSpeed, LengthsSilenceAndTheClock) {
    TrackPtr t = built(1000, 8, [](size_t i) { return int(i) * 10; });
    ASSERT_TRUE(pitch(t.get(), 2.0));
    EXPECT_EQ(t->frameCount(), 8u);
    EXPECT_EQ(t->samples, (std::vector<int16_t>{0, 0, 20, -20, 40, -40, 60, -60, 0, 0, 0, 0, 0, 0, 0, 0}));

    TrackPtr low = built(1000, 4, [](size_t i) { return int(i) * 10; });
    ASSERT_TRUE(pitch(low.get(), 0.5));
    EXPECT_EQ(low->samples, (std::vector<int16_t>{0, 0, 5, -5, 10, -10, 15, -15}));  // the end is cut off

    TrackPtr slow = built(1000, 10, [](size_t i) { return int(i); });
    ASSERT_TRUE(speed(slow.get(), 3.0));
    EXPECT_EQ(slow->frameCount(), 3u);  // llround(3.33)
    EXPECT_EQ(slow->samples, (std::vector<int16_t>{0, 0, 3, -3, 6, -6}));
    ASSERT_TRUE(speed(slow.get(), 0.4));
    EXPECT_EQ(slow->frameCount(), 8u);  // llround(7.5), halves away from zero

    // Factor 1 changes nothing, not even the play clock; any other factor reopens the handle.
    TrackPtr playing = formed(440, 1000);
    ASSERT_TRUE(play(playing.get(), 1000, true));
    EXPECT_TRUE(pitch(playing.get(), 1.0));
    EXPECT_TRUE(speed(playing.get(), 1.0));
    EXPECT_GE(currentOffset(playing.get()), 1000u);
    EXPECT_TRUE(pitch(playing.get(), 1.5));
    EXPECT_EQ(currentOffset(playing.get()), 0u);

    for (double bad : {0.0, -1.0, std::nan(""), std::numeric_limits<double>::infinity()}) {
        EXPECT_FALSE(pitch(playing.get(), bad));
        EXPECT_FALSE(speed(playing.get(), bad));
    }
    EXPECT_FALSE(pitch(nullptr, 2.0));
    TrackPtr empty = formed(440, 0);
    EXPECT_TRUE(speed(empty.get(), 3.0));
}

TEST(Files, OpenMakesStereoAndSaveWritesWhatSoxReads) {
    // A mono file opens as stereo with both sides equal.
    const std::string monoPath = scratchPath("mono.wav");
    writeBytes(monoPath, wavBytes(1, 1, 8000, 16, {0x00, 0x40, 0x00, 0xC0}));
    TrackPtr mono(openFile(monoPath.c_str()));
    ASSERT_TRUE(mono);
    EXPECT_EQ(mono->channels, 2);
    EXPECT_EQ(mono->sampleRate, 8000u);
    EXPECT_EQ(mono->samples, (std::vector<int16_t>{16384, 16384, -16384, -16384}));  // 0.5 * 32767 rounds up
    EXPECT_NE(mono->mixerHandle, nullptr);

    TrackPtr tone = formed(1000, 50, "saw", "right");
    const std::string path = scratchPath("saved.wav");
    ASSERT_TRUE(save(tone.get(), path.c_str()));
    bool ok = false;
    const std::vector<int32_t> values = soxSamples(path, &ok);
    ASSERT_TRUE(ok);
    ASSERT_EQ(values.size(), tone->samples.size());
    for (size_t i = 0; i < values.size(); ++i) ASSERT_EQ(values[i], tone->samples[i] * 65536);

    TrackPtr empty = formed(440, 0);
    const std::string emptyPath = scratchPath("empty_track.wav");
    EXPECT_TRUE(save(empty.get(), emptyPath.c_str()));
    EXPECT_EQ(readBytes(emptyPath), wavBytes(1, 2, 44100, 16, {}));  // the header alone
    EXPECT_EQ(openFile(emptyPath.c_str()), nullptr);
    EXPECT_FALSE(save(nullptr, path.c_str()));
    EXPECT_EQ(openFile(scratchPath("missing.wav").c_str()), nullptr);
    EXPECT_EQ(openFile(nullptr), nullptr);

    TrackAudioView view;
    ASSERT_TRUE(inspect(tone.get(), &view));
    EXPECT_EQ(view.samples, tone->samples.data());
    EXPECT_EQ(view.sampleCount, tone->samples.size());
    EXPECT_EQ(view.sampleRate, 44100u);
    EXPECT_EQ(view.channels, 2);
    EXPECT_FALSE(inspect(nullptr, &view));
    EXPECT_EQ(view.samples, nullptr);
    EXPECT_EQ(view.sampleCount, 0u);
}

// The clock itself, run and stopped, is judged through the module in tests/audio/audio_module.ov.
TEST(Mixer, HandlesAreStopwatchesThatTracksOwn) {
    const int16_t samples[4] = {1, 2, 3, 4};
    EXPECT_EQ(OpenPCMTrack(nullptr, 4, 44100, 2), nullptr);
    EXPECT_EQ(OpenPCMTrack(samples, 0, 44100, 2), nullptr);
    EXPECT_EQ(OpenPCMTrack(samples, 4, 0, 2), nullptr);
    EXPECT_EQ(OpenPCMTrack(samples, 4, 44100, 0), nullptr);
    EXPECT_EQ(OpenPCMTrack(samples, 3, 44100, 2), nullptr);
    const size_t before = OpenHandleCount();
    void* handle = OpenPCMTrack(samples, 4, 44100, 2);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(OpenHandleCount(), before + 1);
    // A new handle stands at 0; the clock does not wrap at the top of its range.
    EXPECT_EQ(GetCurrentOffset(handle), 0u);
    EXPECT_TRUE(Play(handle, std::numeric_limits<uint64_t>::max() - 1, false));
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(GetCurrentOffset(handle), std::numeric_limits<uint64_t>::max());

    // Closed and never-made handles answer false, 0 or nothing.
    Close(handle);
    EXPECT_EQ(OpenHandleCount(), before);
    int notAHandle = 0;
    for (void* gone : {handle, static_cast<void*>(&notAHandle), static_cast<void*>(nullptr)}) {
        EXPECT_FALSE(Play(gone, 5, true));
        EXPECT_EQ(GetCurrentOffset(gone), 0u);
        EXPECT_EQ(Stop(gone), 0u);
        Close(gone);
    }
    EXPECT_EQ(OpenHandleCount(), before);

    // A file handle only tests that the file exists.
    const std::string path = scratchPath("anything.mp3");
    writeBytes(path, {1, 2, 3});
    void* file = OpenMP3File(path.c_str());
    ASSERT_NE(file, nullptr);
    EXPECT_TRUE(Play(file, 0, true));
    Close(file);
    EXPECT_EQ(OpenMP3File(scratchPath("missing.mp3").c_str()), nullptr);
    EXPECT_EQ(OpenMP3File(nullptr), nullptr);

    // A track's handle goes with it; no track plays nothing.
    Track* t = form(440, 100, "sine", "both");
    EXPECT_EQ(OpenHandleCount(), before + 1);
    close(t);
    EXPECT_EQ(OpenHandleCount(), before);
    close(nullptr);
    EXPECT_FALSE(play(nullptr, 0, true));
    EXPECT_EQ(pause(nullptr), 0u);
    EXPECT_EQ(currentOffset(nullptr), 0u);
}
