// The WAV codec against outside judges: the corpus of make_wavs.py, read by us and by sox (or,
// where sox reads a layout otherwise or rounds floats its own way, against the values that went
// into the file), the layouts that must fail, and our files read by sox and Python.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <sstream>

#include "audio/Wav.h"
#include "support.h"

using namespace orvane::wav;
using namespace audio_test;

// The largest single allocation since the last reset, so that a hostile header can be shown to
// cost no more memory than the file's own size. Counts every operator new of the test binary.
namespace {
std::atomic<size_t> gLargestAllocation{0};
}

void* operator new(size_t size) {
    size_t seen = gLargestAllocation.load();
    while (size > seen && !gLargestAllocation.compare_exchange_weak(seen, size)) {
    }
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }

namespace {

struct CorpusEntry {
    std::string name;
    bool ok = false;
    int channels = 0;
    uint32_t rate = 0;
    std::string sox;     // exact, near or none
    std::string values;  // NAME.f64, or empty
};

std::vector<CorpusEntry> corpus() {
    std::vector<CorpusEntry> entries;
    std::ifstream in(corpusDir() + "/manifest.txt");
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        CorpusEntry entry;
        std::string verdict;
        fields >> entry.name >> verdict;
        entry.ok = verdict == "ok";
        if (entry.ok) fields >> entry.channels >> entry.rate >> entry.sox >> entry.values;
        entries.push_back(entry);
    }
    return entries;
}

std::vector<double> readDoubles(const std::string& path) {
    const std::vector<uint8_t> bytes = readBytes(path);
    std::vector<double> values(bytes.size() / 8);
    std::memcpy(values.data(), bytes.data(), values.size() * 8);
    return values;
}

// What the reader must give for `target` output channels from the source values of a file.
std::vector<int16_t> expectedDecode(const std::vector<double>& source, int channels, int target) {
    const int out = target ? target : channels;
    const size_t frames = source.size() / size_t(channels);
    std::vector<int16_t> result;
    for (size_t f = 0; f < frames; ++f) {
        const double* frame = &source[f * size_t(channels)];
        if (out == 1) {
            double sum = 0;
            for (int c = 0; c < channels; ++c) sum += frame[c];
            result.push_back(expectedS16(sum / channels));
        } else if (out == 2) {
            result.push_back(expectedS16(frame[0]));
            result.push_back(expectedS16(frame[channels > 1 ? 1 : 0]));
        } else {
            for (int c = 0; c < out; ++c) result.push_back(expectedS16(frame[std::min(c, channels - 1)]));
        }
    }
    return result;
}

size_t countDifferences(const std::vector<int16_t>& a, const std::vector<int16_t>& b, int tolerance) {
    if (a.size() != b.size()) return std::max(a.size(), b.size());
    size_t differences = 0;
    for (size_t i = 0; i < a.size(); ++i) differences += std::abs(int(a[i]) - int(b[i])) > tolerance;
    return differences;
}

}  // namespace

TEST(WavCorpus, AcceptedFilesDecodeSampleForSampleLikeTheJudges) {
    int accepted = 0;
    for (const CorpusEntry& entry : corpus()) {
        if (!entry.ok) continue;
        ++accepted;
        SCOPED_TRACE(entry.name);
        const std::string path = corpusDir() + "/" + entry.name;
        std::vector<double> source;
        std::vector<double> soxValues;
        if (entry.sox != "none") {
            bool ok = false;
            for (int32_t v : soxSamples(path, &ok)) soxValues.push_back(v / 2147483648.0);
            ASSERT_TRUE(ok) << "sox could not read it";
        }
        if (!entry.values.empty()) {
            source = readDoubles(corpusDir() + "/" + entry.values);
            // sox reads integers exactly: its values and the file's own must be the same.
            if (entry.sox == "exact") {
                EXPECT_EQ(soxValues, source);
            }
        } else {
            source = soxValues;
        }
        ASSERT_FALSE(source.empty());
        ASSERT_EQ(source.size() % size_t(entry.channels), 0u);

        for (int target : {0, 1, 2, 5}) {
            SCOPED_TRACE("target channels " + std::to_string(target));
            DecodedFile file;
            ASSERT_TRUE(decodeFile(path.c_str(), &file, DecodeOptions{uint16_t(target)}));
            EXPECT_EQ(file.sampleRate, entry.rate);
            EXPECT_EQ(file.channels, target ? target : entry.channels);
            EXPECT_EQ(file.frameCount(), source.size() / size_t(entry.channels));
            EXPECT_EQ(countDifferences(file.samples, expectedDecode(source, entry.channels, target), 0), 0u);
            // sox rounds floats to 32 bits first, so its view may sit one 16-bit step away.
            if (entry.sox == "near") {
                EXPECT_EQ(countDifferences(file.samples, expectedDecode(soxValues, entry.channels, target), 1), 0u);
            }
        }
    }
    EXPECT_GE(accepted, 15);
}

TEST(WavCorpus, RefusedLayoutsFailAndLeaveTheOutputAlone) {
    int refused = 0;
    for (const CorpusEntry& entry : corpus()) {
        if (entry.ok) continue;
        ++refused;
        SCOPED_TRACE(entry.name);
        const std::string path = corpusDir() + "/" + entry.name;
        DecodedFile file;
        file.samples = {1, 2};
        file.sampleRate = 7;
        file.channels = 1;
        EXPECT_FALSE(decodeFile(path.c_str(), &file, DecodeOptions{2}));
        const std::vector<uint8_t> bytes = readBytes(path);
        EXPECT_FALSE(decode(bytes.data(), bytes.size(), &file));
        EXPECT_EQ(file.samples, (std::vector<int16_t>{1, 2}));
        EXPECT_EQ(file.sampleRate, 7u);
        EXPECT_EQ(file.channels, 1);
    }
    EXPECT_GE(refused, 20);
}

// A cut anywhere before the end of the first data chunk fails; a cut after it gives the
// whole file's samples or fails (inside a later chunk), nothing in between.
TEST(WavCorpus, EveryPrefixFailsOrGivesTheWholeFilesSamples) {
    for (const char* name : {"odd_data_pad.wav", "two_data.wav", "odd_chunk_before_data.wav", "float32_ext_3ch.wav"}) {
        SCOPED_TRACE(name);
        const std::vector<uint8_t> bytes = readBytes(corpusDir() + "/" + name);
        DecodedFile whole;
        ASSERT_TRUE(decode(bytes.data(), bytes.size(), &whole));
        size_t dataEnd = 12;
        while (std::memcmp(&bytes[dataEnd], "data", 4) != 0) {
            const uint32_t size = detail::readU32LE(&bytes[dataEnd + 4]);
            dataEnd += 8 + size + (size & 1);
        }
        dataEnd += 8 + detail::readU32LE(&bytes[dataEnd + 4]);
        for (size_t size = 0; size < bytes.size(); ++size) {
            DecodedFile part;
            const bool decoded = decode(bytes.data(), size, &part);
            if (size < dataEnd) {
                EXPECT_FALSE(decoded) << "prefix of " << size << " bytes";
            } else if (decoded) {
                EXPECT_EQ(part.samples, whole.samples) << "prefix of " << size << " bytes";
            } else {
                EXPECT_NE(size, dataEnd);
            }
        }
    }
}

// What the corpus cannot hold: NaN, which reads as silence, and infinity, which clips.
TEST(WavRules, NotANumberIsSilenceAndInfinityClips) {
    const float values[2] = {std::numeric_limits<float>::quiet_NaN(), -std::numeric_limits<float>::infinity()};
    std::vector<uint8_t> data(sizeof values);
    std::memcpy(data.data(), values, sizeof values);
    const std::vector<uint8_t> floats = wavBytes(3, 1, 8000, 32, data);
    DecodedFile file;
    ASSERT_TRUE(decode(floats.data(), floats.size(), &file));
    EXPECT_EQ(file.samples, (std::vector<int16_t>{0, -32768}));
}

// Our files byte for byte, read by sox and by Python's wave module, and read back by us: negative
// values come back as they were, s >= 0 as lround(s / 32768 * 32767). The mono case holds every
// 16-bit value.
TEST(WavWriter, OurFilesAreExactAndTheJudgesReadThem) {
    struct Case {
        uint16_t channels;
        uint32_t rate;
        size_t frames;
    };
    for (const Case& c : {Case{1, 8000, 65536}, Case{2, 44100, 1000}, Case{3, 22050, 77}, Case{6, 96000, 40}}) {
        SCOPED_TRACE(std::to_string(c.channels) + " channels at " + std::to_string(c.rate));
        DecodedFile file;
        file.channels = c.channels;
        file.sampleRate = c.rate;
        std::vector<uint8_t> data;
        for (uint32_t i = 0; i < c.frames * c.channels; ++i) {
            file.samples.push_back(int16_t(uint16_t(i * 40503u)));  // odd: a permutation of the values
            data.insert(data.end(), {uint8_t(file.samples.back()), uint8_t(uint16_t(file.samples.back()) >> 8)});
        }
        const std::string path = scratchPath("written_" + std::to_string(c.channels) + ".wav");
        ASSERT_TRUE(encodeFile(path.c_str(), file));
        const std::vector<uint8_t> bytes = readBytes(path);
        EXPECT_EQ(bytes, wavBytes(1, c.channels, c.rate, 16, data));

        bool ok = false;
        const std::vector<int32_t> values = soxSamples(path, &ok);
        ASSERT_TRUE(ok);
        ASSERT_EQ(values.size(), file.samples.size());
        for (size_t i = 0; i < values.size(); ++i) ASSERT_EQ(values[i], int32_t(file.samples[i]) * 65536) << i;
        const std::string script =
            "import sys, wave\nw = wave.open(sys.argv[1])\nframes = w.readframes(w.getnframes())\n"
            "print(w.getnchannels(), w.getsampwidth(), w.getframerate(), w.getnframes(), "
            "frames == open(sys.argv[1], 'rb').read()[44:])";
        const std::string seen = capture(std::string(OT_PYTHON) + " -c " + shellQuote(script) + " " + shellQuote(path), &ok);
        EXPECT_TRUE(ok);
        EXPECT_EQ(seen, std::to_string(c.channels) + " 2 " + std::to_string(c.rate) + " " + std::to_string(c.frames) + " True\n");

        DecodedFile back;
        ASSERT_TRUE(decode(bytes.data(), bytes.size(), &back));
        ASSERT_EQ(back.samples.size(), file.samples.size());
        for (size_t i = 0; i < file.samples.size(); ++i) {
            const int s = file.samples[i];
            ASSERT_EQ(back.samples[i], s < 0 ? s : int(std::lround(s / 32768.0 * 32767.0))) << "sample " << s;
        }
    }
}

TEST(WavWriter, RefusesWhatAPlainHeaderCannotHold) {
    std::vector<uint8_t> untouched = {9, 9};
    DecodedFile file;
    file.channels = 2;
    file.sampleRate = 44100;
    file.samples = {1, 2, 3};  // not whole frames
    EXPECT_FALSE(encode(file, &untouched));
    file.samples = {1, 2};
    EXPECT_FALSE(encode(file, nullptr));
    file.sampleRate = 0;
    EXPECT_FALSE(encode(file, &untouched));
    file.sampleRate = 44100;
    file.channels = 0;
    EXPECT_FALSE(encode(file, &untouched));
    file.channels = 32768;  // block align 65536
    file.samples.assign(32768, 0);
    EXPECT_FALSE(encode(file, &untouched));
    file.channels = 2;
    file.samples = {1, 2};
    file.sampleRate = 0x40000000;  // byte rate 2^32
    EXPECT_FALSE(encode(file, &untouched));
    EXPECT_EQ(untouched, (std::vector<uint8_t>{9, 9}));
    file.sampleRate = 0x3FFFFFFF;
    EXPECT_TRUE(encode(file, &untouched));
    EXPECT_FALSE(encodeFile(nullptr, file));
    EXPECT_FALSE(encodeFile(scratchPath("no/such/dir/x.wav").c_str(), file));
    DecodedFile out;
    EXPECT_FALSE(decodeFile(nullptr, &out));
    EXPECT_FALSE(decodeFile(scratchPath("missing.wav").c_str(), &out));
    EXPECT_FALSE(decode(nullptr, 100, &out));
}

// Headers that claim far more than the file holds cost no memory beyond the file's own size.
TEST(WavHostile, ClaimsBeyondTheFileFailOrStayWithinItsSize) {
    auto patched = [](std::vector<uint8_t> bytes, size_t at, uint32_t value, int width) {
        for (int i = 0; i < width; ++i) bytes[at + size_t(i)] = uint8_t(value >> (8 * i));
        return bytes;
    };
    const std::vector<uint8_t> base = wavBytes(1, 2, 44100, 16, std::vector<uint8_t>(400, 7));
    struct Case {
        const char* what;
        std::vector<uint8_t> bytes;
        bool decodes;
    };
    const Case cases[] = {
        {"data size 0xFFFFFFFF", patched(base, 40, 0xFFFFFFFFu, 4), false},
        {"fmt size 0xFFFFFFF0", patched(base, 16, 0xFFFFFFF0u, 4), false},
        {"RIFF size 0xFFFFFFFF (not read)", patched(base, 4, 0xFFFFFFFFu, 4), true},
        {"65535 channels of 32 bits", patched(patched(base, 22, 65535, 2), 34, 32, 2), false},
        {"block align 0 (not read)", patched(base, 32, 0, 2), true},
        {"rate 0xFFFFFFFF", patched(base, 24, 0xFFFFFFFFu, 4), true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        DecodedFile file;
        gLargestAllocation = 0;
        EXPECT_EQ(decode(c.bytes.data(), c.bytes.size(), &file), c.decodes);
        EXPECT_LE(gLargestAllocation.load(), 2 * c.bytes.size());
    }
}
