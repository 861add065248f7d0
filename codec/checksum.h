#pragma once

#include <cstddef>
#include <cstdint>

namespace ot::png {

// CRC-32 with the polynomial 0xEDB88320; pass the previous result to continue a running CRC.
uint32_t crc32_bytes(const uint8_t* data, size_t size, uint32_t crc = 0);
uint32_t adler32_bytes(const uint8_t* data, size_t size, uint32_t adler = 1);

}  // namespace ot::png
