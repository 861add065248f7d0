// RIFF WAVE files to and from one in-memory form: interleaved signed 16-bit samples. Reads
// integer PCM of 8 to 32 bits and IEEE float of 32 and 64 bits, also behind an extensible
// header; writes plain 16-bit PCM. Standard library only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace orvane::wav {

struct DecodedFile {
    std::vector<int16_t> samples;  // interleaved by frame
    uint32_t sampleRate = 0;       // frames per second
    uint16_t channels = 0;

    DecodedFile() = default;
    DecodedFile(DecodedFile&&) noexcept = default;
    DecodedFile& operator=(DecodedFile&&) noexcept = default;
    DecodedFile(const DecodedFile&) = default;
    DecodedFile& operator=(const DecodedFile&) = default;

    uint64_t frameCount() const { return channels ? samples.size() / channels : 0; }
    bool empty() const { return samples.empty() || sampleRate == 0 || channels == 0; }
};

struct DecodeOptions {
    uint16_t targetChannels = 0;  // 0 keeps the file's channel count
};

// Each answers false and leaves its output alone on any failure.
bool decode(const uint8_t* data, size_t size, DecodedFile* out, DecodeOptions options = {});
bool decodeFile(const char* path, DecodedFile* out, DecodeOptions options = {});
bool encode(const DecodedFile& file, std::vector<uint8_t>* bytes);
bool encodeFile(const char* path, const DecodedFile& file);

namespace detail {

constexpr uint16_t kFormatPcm = 1;
constexpr uint16_t kFormatFloat = 3;
constexpr uint16_t kFormatExtensible = 65534;

uint16_t readU16LE(const uint8_t* bytes);
uint32_t readU32LE(const uint8_t* bytes);
void writeU16LE(std::vector<uint8_t>& out, uint16_t value);
void writeU32LE(std::vector<uint8_t>& out, uint32_t value);
void writeBytes(std::vector<uint8_t>& out, const char* bytes, size_t count);
bool readFileBytes(const char* path, std::vector<uint8_t>* out);
int16_t floatToS16(double x);
bool isSupportedFormat(uint16_t tag, uint16_t bits);
// One sample of a supported format as a value in -1..1.
double readSampleAsFloat(const uint8_t* bytes, uint16_t tag, uint16_t bits);
// The tag that an extensible header stands for, or the tag itself; 0 when it cannot be resolved.
uint16_t resolveFormatTag(uint16_t tag, const uint8_t* chunk, uint32_t chunkSize);

}  // namespace detail

}  // namespace orvane::wav
