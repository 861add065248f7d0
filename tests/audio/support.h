// What the audio tests share: a scratch folder, the corpus of make_wavs.py, sox as a judge, and
// the conversion of sample values in -1..1 to 16 bits that the reader must apply.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace audio_test {

// A fresh folder for this process, removed when it ends.
inline const std::string& scratchDir() {
    struct Dir {
        std::string path = (std::filesystem::temp_directory_path() / "ot-audio-XXXXXX").string();
        Dir() {
            if (!mkdtemp(path.data())) std::abort();
        }
        ~Dir() {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
    };
    static Dir dir;
    return dir.path;
}

inline std::string scratchPath(const std::string& name) { return scratchDir() + "/" + name; }

inline std::string shellQuote(const std::string& text) {
    std::string quoted = "'";
    for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// Runs a command and gives its standard output; `ok` tells whether it exited with status 0.
inline std::string capture(const std::string& command, bool* ok) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    *ok = pipe != nullptr;
    if (!pipe) return output;
    char buffer[65536];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, n);
    *ok = pclose(pipe) == 0;
    return output;
}

// The corpus of make_wavs.py, made once per process.
inline const std::string& corpusDir() {
    static const std::string dir = [] {
        const std::string path = scratchPath("corpus");
        const std::string command = std::string(OT_PYTHON) + " " + shellQuote(std::string(OT_AUDIO_TEST_DIR) + "/make_wavs.py") +
                                    " " + shellQuote(path);
        if (std::system(command.c_str()) != 0) ADD_FAILURE() << "make_wavs.py failed";
        return path;
    }();
    return dir;
}

inline std::vector<uint8_t> readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

// sox's reading of a file as signed 32-bit values, interleaved, without dither. sox scales every
// integer format to 32 bits by shifting (8-bit unsigned u becomes (u - 128) << 24, 16-bit s
// becomes s << 16, 24-bit s << 8), so value / 2^31 is exactly the -1..1 value the reader uses.
inline std::vector<int32_t> soxSamples(const std::string& path, bool* ok) {
    const std::string raw = capture("sox -D -V1 " + shellQuote(path) + " -t raw -e signed-integer -b 32 - 2>/dev/null", ok);
    std::vector<int32_t> values(raw.size() / 4);
    for (size_t i = 0; i < values.size(); ++i) {
        const auto* b = reinterpret_cast<const uint8_t*>(raw.data() + 4 * i);
        values[i] = int32_t(uint32_t(b[0]) | uint32_t(b[1]) << 8 | uint32_t(b[2]) << 16 | uint32_t(b[3]) << 24);
    }
    return values;
}

// A value in -1..1 as 16 bits: 32768 steps below zero, 32767 above, so both ends are reached.
inline int16_t expectedS16(double x) {
    if (x <= -1.0) return -32768;
    if (x >= 1.0) return 32767;
    return int16_t(x < 0 ? std::lround(x * 32768.0) : std::lround(x * 32767.0));
}

// A WAV file in memory: a plain 16-byte fmt chunk and one data chunk.
inline std::vector<uint8_t> wavBytes(uint16_t tag, uint16_t channels, uint32_t rate, uint16_t bits,
                                     const std::vector<uint8_t>& data) {
    std::vector<uint8_t> out;
    auto u16 = [&](uint32_t v) { out.push_back(uint8_t(v)); out.push_back(uint8_t(v >> 8)); };
    auto u32 = [&](uint32_t v) { u16(v & 0xFFFF); u16(v >> 16); };
    auto id = [&](const char* text) { out.insert(out.end(), text, text + 4); };
    id("RIFF");
    u32(uint32_t(36 + data.size() + (data.size() & 1)));
    id("WAVE");
    id("fmt ");
    u32(16);
    u16(tag);
    u16(channels);
    u32(rate);
    u32(rate * channels * (bits / 8));
    u16(channels * (bits / 8));
    u16(bits);
    id("data");
    u32(uint32_t(data.size()));
    out.insert(out.end(), data.begin(), data.end());
    if (data.size() & 1) out.push_back(0);
    return out;
}

}  // namespace audio_test
