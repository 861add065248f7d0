// Our own zlib/deflate reader: the whole stream is inflated into memory in one go.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace ot::png {

struct ByteSpan {
    const uint8_t* data = nullptr;
    size_t size = 0;
};

// Output growing past `limit` fails at once: callers that know the exact size they need pass it,
// so a tiny stream that claims a huge image cannot make us allocate much.
bool inflate_zlib_stream(const uint8_t* data, size_t size, std::vector<uint8_t>& output, size_t limit = SIZE_MAX);

class Inflater {
public:
    // Inflates all of the zlib stream that the spans make together. With `front` spare bytes,
    // zero, before the output, for a reader that turns the stream into its image in place, the
    // output must be exactly `limit` bytes long.
    bool start(const std::vector<ByteSpan>& spans, size_t limit = SIZE_MAX, size_t front = 0);
    // The next `count` bytes of the output, or null when fewer are left.
    const uint8_t* read_exact(size_t count);
    // True when every byte of the output has been read.
    bool finish() const { return position_ == output_.size(); }
    size_t output_size() const { return output_.size() - front_; }
    // Hands the whole output over, the spare bytes included.
    std::vector<uint8_t> take_output();

private:
    std::vector<uint8_t> output_;
    size_t position_ = 0;
    size_t front_ = 0;
};

}  // namespace ot::png
