// libFuzzer target: any bytes through the WAV reader from memory. It must fail without touching
// its output, or give whole frames whose every channel layout agrees with the others, and what it
// gives must survive the writer and the reader again.
#include <cstdlib>
#include <vector>

#include "audio/Wav.h"

namespace {

using orvane::wav::DecodedFile;
using orvane::wav::DecodeOptions;

void require(bool condition) {
    if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    DecodedFile own, mono, stereo, five;
    own.sampleRate = 7;  // a failed decode must leave this alone
    if (!orvane::wav::decode(data, size, &own)) {
        require(own.sampleRate == 7 && own.samples.empty() && own.channels == 0);
        require(!orvane::wav::decode(data, size, &stereo, DecodeOptions{2}));
        return 0;
    }
    require(own.channels > 0 && own.sampleRate > 0 && own.frameCount() > 0);
    require(own.samples.size() % own.channels == 0);
    require(own.samples.size() <= size);  // a sample out for each byte in at most: no claimed sizes
    require(orvane::wav::decode(data, size, &mono, DecodeOptions{1}));
    require(orvane::wav::decode(data, size, &stereo, DecodeOptions{2}));
    require(orvane::wav::decode(data, size, &five, DecodeOptions{5}));
    const uint64_t frames = own.frameCount();
    require(mono.frameCount() == frames && stereo.frameCount() == frames && five.frameCount() == frames);
    require(mono.channels == 1 && stereo.channels == 2 && five.channels == 5);
    const size_t channels = own.channels;
    for (uint64_t f = 0; f < frames; ++f) {
        const int16_t* frame = &own.samples[f * channels];
        require(stereo.samples[2 * f] == frame[0]);
        require(stereo.samples[2 * f + 1] == frame[channels > 1 ? 1 : 0]);
        for (size_t c = 0; c < 5; ++c) require(five.samples[5 * f + c] == frame[c < channels ? c : channels - 1]);
        if (channels == 1) require(mono.samples[f] == frame[0]);
    }

    std::vector<uint8_t> bytes;
    if (channels > 32767) return 0;  // past what a plain 16-bit header holds
    const bool encoded = orvane::wav::encode(own, &bytes);
    require(encoded == (uint64_t(own.sampleRate) * channels * 2 <= 0xFFFFFFFFu));
    if (!encoded) return 0;
    DecodedFile again;
    require(orvane::wav::decode(bytes.data(), bytes.size(), &again));
    require(again.channels == own.channels && again.sampleRate == own.sampleRate && again.samples.size() == own.samples.size());
    for (size_t i = 0; i < own.samples.size(); ++i) {
        const int s = own.samples[i];
        require(again.samples[i] == (s < 0 ? s : int16_t((s * 32767 + 16384) / 32768)));
    }
    return 0;
}
