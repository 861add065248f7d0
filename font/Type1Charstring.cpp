// The Type 1 charstring interpreter: numbers, moves, straight lines, subroutine calls and the
// few operators that only touch the stack. Curves, flex, accents and arithmetic fail the glyph.
#include <cmath>

#include "font/Type1Backend.h"

namespace orvane::font {

namespace {

constexpr int32_t kDeepestCall = 16;
constexpr uint8_t kEscape = 12, kFirstNumberByte = 32;

enum Operator : uint8_t {
    kHstem = 1, kVstem = 3, kVmoveto = 4, kRlineto = 5, kHlineto = 6, kVlineto = 7, kClosepath = 9,
    kCallsubr = 10, kReturn = 11, kHsbw = 13, kEndchar = 14, kRmoveto = 21, kHmoveto = 22,
};
enum EscapedOperator : uint8_t { kSbw = 7, kCallothersubr = 16, kPop = 17, kSetcurrentpoint = 33 };

}  // namespace

bool Type1Interpreter::execute(const Bytes& charstring, int32_t depth) {
    if (depth > kDeepestCall) return false;
    size_t position = 0;
    while (position < charstring.size()) {
        if (++steps_ > kMaxSteps) return false;
        const uint8_t byte = charstring[position++];
        if (byte == kEscape) {
            if (position >= charstring.size() || !handle_escaped(charstring[position++])) return false;
        } else if (byte >= kFirstNumberByte) {
            push_number(read_number(byte, charstring, position));
        } else {
            if (!handle_operator(byte, depth)) return false;
            if (ended_ || returned_) return true;
        }
    }
    return true;
}

double Type1Interpreter::read_number(uint8_t byte, const Bytes& charstring, size_t& position) const {
    if (byte <= 246) return double(int32_t(byte) - 139);
    if (byte == 255) {
        if (!can_read(charstring, position, 4)) {
            position = charstring.size();
            return 0.0;
        }
        // Read as 16.16 fixed point, so that fonts can carry fractional coordinates.
        const double value = double(read_s32_be(charstring, position)) / 65536.0;
        position += 4;
        return value;
    }
    if (position >= charstring.size()) return 0.0;
    const int32_t w = charstring[position++];
    if (byte <= 250) return double((int32_t(byte) - 247) * 256 + w + 108);
    return double((251 - int32_t(byte)) * 256 - w - 108);
}

bool Type1Interpreter::handle_operator(uint8_t byte, int32_t depth) {
    switch (byte) {
    case kHstem:
    case kVstem: stack_.clear(); return true;  // hints mean nothing without a hinter
    case kVmoveto: return handle_vmoveto();
    case kRlineto: return handle_rlineto();
    case kHlineto: return handle_hlineto();
    case kVlineto: return handle_vlineto();
    case kClosepath: return handle_closepath();
    case kCallsubr: return handle_callsubr(depth);
    case kReturn: return handle_return();
    case kHsbw: return handle_hsbw();
    case kEndchar: return handle_endchar();
    case kRmoveto: return handle_rmoveto();
    case kHmoveto: return handle_hmoveto();
    default: return false;  // curves among them
    }
}

bool Type1Interpreter::handle_escaped(uint8_t byte) {
    switch (byte) {
    case kSbw: return handle_sbw();
    case kCallothersubr: return handle_callothersubr();
    case kPop: return handle_pop();
    case kSetcurrentpoint: return handle_setcurrentpoint();
    default: return false;
    }
}

bool Type1Interpreter::handle_vmoveto() {
    if (stack_.empty()) return false;
    y_ += stack_.back();
    stack_.clear();
    move_to_current();
    return true;
}

bool Type1Interpreter::handle_rlineto() {
    if (stack_.size() < 2) return false;
    x_ += stack_[stack_.size() - 2];
    y_ += stack_.back();
    stack_.clear();
    return line_to_current();
}

bool Type1Interpreter::handle_hlineto() {
    if (stack_.empty()) return false;
    x_ += stack_.back();
    stack_.clear();
    return line_to_current();
}

bool Type1Interpreter::handle_vlineto() {
    if (stack_.empty()) return false;
    y_ += stack_.back();
    stack_.clear();
    return line_to_current();
}

bool Type1Interpreter::handle_closepath() {
    stack_.clear();
    close_path();
    return true;
}

bool Type1Interpreter::handle_callsubr(int32_t depth) {
    if (stack_.empty()) return false;
    const double top = stack_.back();
    stack_.clear();
    const std::vector<Bytes>& subrs = backend_.subrs();
    // Numbers are at most 32 bits, so the rounding cannot overflow.
    const long index = std::lround(top);
    if (index < 0 || size_t(index) >= subrs.size()) return false;
    if (!execute(subrs[size_t(index)], depth + 1)) return false;
    // An endchar inside the subroutine keeps `ended_`, which ends the caller too.
    returned_ = false;
    return true;
}

bool Type1Interpreter::handle_return() {
    stack_.clear();
    returned_ = true;
    return true;
}

bool Type1Interpreter::handle_hsbw() {
    if (stack_.size() < 2) return false;
    x_ = stack_[stack_.size() - 2];
    y_ = 0;
    advance_ = scale_ * stack_.back();
    stack_.clear();
    startX_ = x_, startY_ = y_;
    pathOpen_ = false;
    return true;
}

bool Type1Interpreter::handle_endchar() {
    stack_.clear();
    close_path();
    ended_ = true;
    return true;
}

bool Type1Interpreter::handle_rmoveto() {
    if (stack_.size() < 2) return false;
    x_ += stack_[stack_.size() - 2];
    y_ += stack_.back();
    stack_.clear();
    move_to_current();
    return true;
}

bool Type1Interpreter::handle_hmoveto() {
    if (stack_.empty()) return false;
    x_ += stack_.back();
    stack_.clear();
    move_to_current();
    return true;
}

bool Type1Interpreter::handle_sbw() {
    if (stack_.size() < 4) return false;
    const size_t n = stack_.size();
    x_ = stack_[n - 4];
    y_ = stack_[n - 3];
    advance_ = scale_ * stack_[n - 2];
    stack_.clear();
    startX_ = x_, startY_ = y_;
    pathOpen_ = false;
    return true;
}

// The other subroutines are PostScript that this reader does not run; what they would leave
// for `pop` is dropped with them.
bool Type1Interpreter::handle_callothersubr() {
    stack_.clear();
    return true;
}

bool Type1Interpreter::handle_pop() {
    stack_.clear();
    return true;
}

bool Type1Interpreter::handle_setcurrentpoint() {
    stack_.clear();
    return true;
}

void Type1Interpreter::move_to_current() {
    close_path();
    builder_.move_to(scale_point(x_, y_));
    startX_ = x_, startY_ = y_;
    pathOpen_ = true;
}

bool Type1Interpreter::line_to_current() {
    if (!pathOpen_) {
        builder_.move_to(scale_point(startX_, startY_));
        pathOpen_ = true;
    }
    builder_.line_to(scale_point(x_, y_));
    return builder_.segments().size() <= kMaxSegments;
}

void Type1Interpreter::close_path() {
    builder_.close_contour();
    pathOpen_ = false;
}

}  // namespace orvane::font
