// libFuzzer target: any bytes through load_memory, which must fail cleanly or give a whole image.
// A PNG input is also tried with every chunk CRC set right, or the fuzzer would rarely get past
// the CRC check into inflate, the filters and the APNG squash.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "codec/bytes.h"
#include "codec/checksum.h"
#include "codec/codec.h"

namespace {

void check(const uint8_t* data, size_t size) {
    ot::png::Image image;
    const bool ok = ot::png::load_memory(data, size, image);
    if (ok ? image.width == 0 || image.pixels.size() != size_t(image.width) * image.height * 4
           : image.width != 0 || !image.pixels.empty())
        std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    check(data, size);
    static const uint8_t kSignature[8] = {137, 80, 78, 71, 13, 10, 26, 10};
    if (size < 8 || std::memcmp(data, kSignature, 8) != 0) return 0;
    std::vector<uint8_t> fixed(data, data + size);
    for (size_t p = 8; fixed.size() - p >= 12;) {
        const uint32_t length = ot::png::read_u32_be(&fixed[p]);
        if (length > fixed.size() - p - 12) break;
        ot::png::write_u32_be(&fixed[p + 8 + length], ot::png::crc32_bytes(&fixed[p + 4], size_t(length) + 4));
        p += size_t(length) + 12;
    }
    check(fixed.data(), fixed.size());
    return 0;
}
