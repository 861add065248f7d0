#include "audio/Wav.h"

#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <new>
#include <stdexcept>

namespace orvane::wav {

namespace detail {

uint16_t readU16LE(const uint8_t* bytes) { return uint16_t(bytes[0] | (bytes[1] << 8)); }

uint32_t readU32LE(const uint8_t* bytes) {
    return uint32_t(bytes[0]) | (uint32_t(bytes[1]) << 8) | (uint32_t(bytes[2]) << 16) | (uint32_t(bytes[3]) << 24);
}

void writeU16LE(std::vector<uint8_t>& out, uint16_t value) {
    out.push_back(uint8_t(value));
    out.push_back(uint8_t(value >> 8));
}

void writeU32LE(std::vector<uint8_t>& out, uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) out.push_back(uint8_t(value >> shift));
}

void writeBytes(std::vector<uint8_t>& out, const char* bytes, size_t count) {
    out.insert(out.end(), reinterpret_cast<const uint8_t*>(bytes), reinterpret_cast<const uint8_t*>(bytes) + count);
}

bool readFileBytes(const char* path, std::vector<uint8_t>* out) {
    if (!path || !out) return false;
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    in.seekg(0, std::ios::end);
    const std::streamoff size = in.tellg();
    if (size <= 0) return false;
    in.seekg(0, std::ios::beg);
    std::vector<uint8_t> bytes;
    try {
        bytes.resize(size_t(size));
    } catch (const std::exception&) {
        return false;
    }
    if (!in.read(reinterpret_cast<char*>(bytes.data()), size)) return false;
    *out = std::move(bytes);
    return true;
}

// Scaled by 32768 below zero and 32767 above, so that both ends of the range are reachable.
int16_t floatToS16(double x) {
    if (x <= -1.0) return -32768;
    if (x >= 1.0) return 32767;
    return int16_t(x < 0 ? std::lround(x * 32768.0) : std::lround(x * 32767.0));
}

bool isSupportedFormat(uint16_t tag, uint16_t bits) {
    if (tag == kFormatPcm) return bits == 8 || bits == 16 || bits == 24 || bits == 32;
    if (tag == kFormatFloat) return bits == 32 || bits == 64;
    return false;
}

namespace {

// A float sample outside -1..1 is clipped; NaN has no place in the range and reads as silence.
double clampUnit(double x) {
    if (std::isnan(x)) return 0.0;
    return x < -1.0 ? -1.0 : (x > 1.0 ? 1.0 : x);
}

}  // namespace

double readSampleAsFloat(const uint8_t* bytes, uint16_t tag, uint16_t bits) {
    if (tag == kFormatPcm) {
        switch (bits) {
        case 8: return (int(bytes[0]) - 128) / 128.0;
        case 16: return int16_t(readU16LE(bytes)) / 32768.0;
        case 24: {
            int32_t value = int32_t(bytes[0] | (bytes[1] << 8) | (uint32_t(bytes[2]) << 16));
            if (value & 0x800000) value -= 0x1000000;
            return value / 8388608.0;
        }
        case 32: return int32_t(readU32LE(bytes)) / 2147483648.0;
        default: return 0.0;
        }
    }
    if (tag == kFormatFloat) {
        if (bits == 32) {
            const uint32_t raw = readU32LE(bytes);
            float value;
            std::memcpy(&value, &raw, sizeof value);
            return clampUnit(value);
        }
        if (bits == 64) {
            const uint64_t raw = uint64_t(readU32LE(bytes)) | (uint64_t(readU32LE(bytes + 4)) << 32);
            double value;
            std::memcpy(&value, &raw, sizeof value);
            return clampUnit(value);
        }
    }
    return 0.0;
}

uint16_t resolveFormatTag(uint16_t tag, const uint8_t* chunk, uint32_t chunkSize) {
    if (tag != kFormatExtensible) return tag;
    if (!chunk || chunkSize < 40 || readU16LE(chunk + 16) < 22) return 0;
    const uint16_t subFormat = readU16LE(chunk + 24);
    return subFormat == kFormatPcm || subFormat == kFormatFloat ? subFormat : 0;
}

}  // namespace detail

using namespace detail;

bool decode(const uint8_t* data, size_t size, DecodedFile* out, DecodeOptions options) {
    if (!data || !out || size < 12) return false;
    if (std::memcmp(data, "RIFF", 4) != 0 || std::memcmp(data + 8, "WAVE", 4) != 0) return false;

    bool haveFormat = false, haveData = false;
    uint16_t tag = 0, channels = 0, bits = 0;
    uint32_t rate = 0;
    size_t dataOffset = 0;
    uint32_t dataSize = 0;
    // `position` may pass the end by one pad byte, so the remaining room is tested before subtracting.
    for (size_t position = 12; position < size && size - position >= 8;) {
        const uint8_t* header = data + position;
        const uint32_t chunkSize = readU32LE(header + 4);
        position += 8;
        if (chunkSize > size - position) return false;  // a truncated file is refused whole
        const uint8_t* chunk = data + position;
        if (std::memcmp(header, "fmt ", 4) == 0) {
            if (chunkSize < 16) return false;
            channels = readU16LE(chunk + 2);
            rate = readU32LE(chunk + 4);
            bits = readU16LE(chunk + 14);
            tag = resolveFormatTag(readU16LE(chunk), chunk, chunkSize);
            if (tag == 0 || !isSupportedFormat(tag, bits)) return false;
            haveFormat = true;
        } else if (std::memcmp(header, "data", 4) == 0 && !haveData) {
            haveData = true;
            dataOffset = position;
            dataSize = chunkSize;
        }
        position += size_t(chunkSize) + (chunkSize & 1u);
    }

    if (!haveFormat || !haveData || dataSize == 0 || channels == 0 || rate == 0) return false;
    const size_t sampleBytes = bits / 8;
    const size_t frameBytes = sampleBytes * channels;
    if (sampleBytes == 0 || frameBytes == 0 || dataSize < frameBytes) return false;

    const uint16_t outChannels = options.targetChannels ? options.targetChannels : channels;
    const size_t frames = dataSize / frameBytes;
    DecodedFile result;
    try {
        result.samples.resize(frames * outChannels);
    } catch (const std::exception&) {
        return false;
    }
    result.sampleRate = rate;
    result.channels = outChannels;

    const uint8_t* frame = data + dataOffset;
    int16_t* target = result.samples.data();
    auto source = [&](size_t channel) { return readSampleAsFloat(frame + channel * sampleBytes, tag, bits); };
    for (size_t f = 0; f < frames; ++f, frame += frameBytes) {
        if (outChannels == 1) {
            double sum = 0.0;
            for (size_t c = 0; c < channels; ++c) sum += source(c);
            *target++ = floatToS16(sum / channels);
        } else if (outChannels == 2) {
            *target++ = floatToS16(source(0));
            *target++ = floatToS16(source(channels > 1 ? 1 : 0));
        } else {
            for (size_t c = 0; c < outChannels; ++c) *target++ = floatToS16(source(c < channels ? c : channels - 1u));
        }
    }
    *out = std::move(result);
    return true;
}

bool decodeFile(const char* path, DecodedFile* out, DecodeOptions options) {
    if (!path || !out) return false;
    std::vector<uint8_t> bytes;
    if (!readFileBytes(path, &bytes)) return false;
    return decode(bytes.data(), bytes.size(), out, options);
}

bool encode(const DecodedFile& file, std::vector<uint8_t>* bytes) {
    if (!bytes || file.sampleRate == 0 || file.channels == 0 || file.samples.size() % file.channels != 0) return false;
    constexpr uint64_t kMax32 = std::numeric_limits<uint32_t>::max();
    const uint64_t dataSize = uint64_t(file.samples.size()) * 2;
    const uint64_t blockAlign = uint64_t(file.channels) * 2;
    const uint64_t byteRate = uint64_t(file.sampleRate) * blockAlign;
    if (dataSize > kMax32 || dataSize + 36 > kMax32 || blockAlign > 65535 || byteRate > kMax32) return false;

    std::vector<uint8_t> result;
    try {
        result.reserve(size_t(44 + dataSize));
    } catch (const std::exception&) {
        return false;
    }
    writeBytes(result, "RIFF", 4);
    writeU32LE(result, uint32_t(dataSize + 36));
    writeBytes(result, "WAVE", 4);
    writeBytes(result, "fmt ", 4);
    writeU32LE(result, 16);
    writeU16LE(result, kFormatPcm);
    writeU16LE(result, file.channels);
    writeU32LE(result, file.sampleRate);
    writeU32LE(result, uint32_t(byteRate));
    writeU16LE(result, uint16_t(blockAlign));
    writeU16LE(result, 16);
    writeBytes(result, "data", 4);
    writeU32LE(result, uint32_t(dataSize));
    for (int16_t sample : file.samples) writeU16LE(result, uint16_t(sample));
    *bytes = std::move(result);
    return true;
}

bool encodeFile(const char* path, const DecodedFile& file) {
    if (!path) return false;
    std::vector<uint8_t> bytes;
    if (!encode(file, &bytes)) return false;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) return false;
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    return bool(out);
}

}  // namespace orvane::wav
