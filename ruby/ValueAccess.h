// Raw access to a RubyValue for the VM's hot paths, and the one tag that never leaves the VM:
// `kUnset` marks a local or a global slot that was never assigned.
#pragma once

#include "ruby/Program.h"
#include "ruby/RubyValue.h"

// The hot paths are forced inline when optimizing. Without optimization every inlined body
// would keep stack slots of its own in the loop's frame, which would then be too large for deep
// recursion, so they stay calls there.
#if defined(__GNUC__) && defined(__OPTIMIZE__)
#define OT_RUBY_INLINE __attribute__((always_inline)) inline
#else
#define OT_RUBY_INLINE inline
#endif
#if defined(__GNUC__)
#define OT_RUBY_COLD __attribute__((noinline, cold))
#define OT_RUBY_NOINLINE __attribute__((noinline))
#else
#define OT_RUBY_COLD
#define OT_RUBY_NOINLINE
#endif

namespace orvane::ruby {

// A number or boolean on its way into a value, without the value's bookkeeping.
struct Scalar {
    RubyValueType tag;
    uint64_t bits;
    static Scalar integer(int64_t x) { return {RubyValueType::Integer, static_cast<uint64_t>(x)}; }
    static Scalar number(double x) {
        uint64_t bits;
        std::memcpy(&bits, &x, sizeof bits);
        return {RubyValueType::Float, bits};
    }
    static Scalar boolean(bool x) { return {RubyValueType::Boolean, x ? 1u : 0u}; }
};

struct RubyValueAccess {
    static constexpr RubyValueType kUnset = static_cast<RubyValueType>(8);

    static RubyValueType tag(const RubyValue& value) { return value.type_; }
    static bool isUnset(const RubyValue& value) { return value.type_ == kUnset; }
    static void markUnset(RubyValue& value) {
        value.release();
        value.type_ = kUnset;
    }
    static int64_t integer(const RubyValue& value) { return value.integer_; }
    static uint64_t bits(const RubyValue& value) { return value.bits_; }
    static double number(const RubyValue& value) { return value.number_; }
    static bool boolean(const RubyValue& value) { return value.boolean_; }
    // The setters are for a value that holds no shared object.
    static void setInteger(RubyValue& value, int64_t x) {
        value.type_ = RubyValueType::Integer;
        value.integer_ = x;
    }
    static void setFloat(RubyValue& value, double x) {
        value.type_ = RubyValueType::Float;
        value.number_ = x;
    }
    static void setBoolean(RubyValue& value, bool x) {
        value.type_ = RubyValueType::Boolean;
        value.bits_ = 0;
        value.boolean_ = x;
    }
    static void forgetScalar(RubyValue& value) { value.type_ = RubyValueType::Nil; }
    // Back to nil, as every free slot of a frame must be.
    OT_RUBY_INLINE static void clear(RubyValue& value) {
        if (value.isShared()) value.shared_.~shared_ptr();
        value.type_ = RubyValueType::Nil;
    }
    // Assignment that skips the reference counts when neither side holds a shared object.
    OT_RUBY_INLINE static void assign(RubyValue& to, const RubyValue& from) {
        if (!to.isShared() && !from.isShared()) {
            to.type_ = from.type_;
            to.bits_ = from.bits_;
        } else {
            assignShared(to, from);
        }
    }
    OT_RUBY_COLD static void assignShared(RubyValue& to, const RubyValue& from) { to = from; }
    // to = std::move(from), leaving `from` nil.
    OT_RUBY_INLINE static void move(RubyValue& to, RubyValue& from) {
        if (to.isShared()) to.shared_.~shared_ptr();
        to.type_ = from.type_;
        if (from.isShared()) {
            new (&to.shared_) std::shared_ptr<void>(std::move(from.shared_));
            from.shared_.~shared_ptr();
        } else {
            to.bits_ = from.bits_;
        }
        from.type_ = RubyValueType::Nil;
    }
    // Writes a scalar over whatever the value held.
    OT_RUBY_INLINE static void setScalar(RubyValue& to, Scalar scalar) {
        if (to.isShared()) to.shared_.~shared_ptr();
        to.type_ = scalar.tag;
        to.bits_ = scalar.bits;
    }
    // Writes a scalar over a value known to hold none of the shared kinds.
    OT_RUBY_INLINE static void putScalar(RubyValue& to, Scalar scalar) {
        to.type_ = scalar.tag;
        to.bits_ = scalar.bits;
    }
    static bool isShared(const RubyValue& value) { return value.isShared(); }
    static const std::string& string(const RubyValue& value) { return *static_cast<const std::string*>(value.shared_.get()); }
    static RubyArray& array(const RubyValue& value) { return *static_cast<RubyArray*>(value.shared_.get()); }
    static RubyMap& map(const RubyValue& value) { return *static_cast<RubyMap*>(value.shared_.get()); }
    static RubyFunctionHandle* function(const RubyValue& value) {
        return static_cast<RubyFunctionHandle*>(value.shared_.get());
    }
};

}  // namespace orvane::ruby
