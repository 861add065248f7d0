// libFuzzer target: our table-driven inflater against the bit-by-bit reference. They must accept
// and refuse the same streams and give the same bytes.
#include <cstdlib>
#include <vector>

#include "codec/inflate.h"
#include "reference_inflate.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::vector<uint8_t> ours, reference;
    const bool ok = ot::png::inflate_zlib_stream(data, size, ours, 1 << 24);
    const bool referenceOk = reference::inflate_zlib(data, size, reference);
    // The limit only cuts streams that the reference inflates to more than 16 MiB.
    if (ok != referenceOk && !(referenceOk && reference.size() > (1u << 24))) std::abort();
    if (ok && ours != reference) std::abort();
    return 0;
}
