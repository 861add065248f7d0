// The value rules at the operators, shared by the instruction loop and the fast nodes, so that
// both give the same results and the same error texts.
#pragma once

#include <cstdint>
#include <string>

#include "ruby/Program.h"
#include "ruby/RubyVM.h"

namespace orvane::ruby {

constexpr double kEpsilon = 2.220446049250313e-16;

// "chunk:line: message".
std::string locationFor(const Program& program, uint32_t line, const std::string& message);
[[noreturn]] void runtimeError(const Program& program, uint32_t line, const std::string& message);

// The result of `+` can grow a string or an array: those are held to the limits.
RubyValue addValues(const RubyValue& a, const RubyValue& b, const Program& program, uint32_t line,
                    const RubyLimits& limits);
RubyValue subtractValues(const RubyValue& a, const RubyValue& b, const Program& program, uint32_t line);
RubyValue multiplyValues(const RubyValue& a, const RubyValue& b, const Program& program, uint32_t line);
RubyValue divideValues(const RubyValue& a, const RubyValue& b, const Program& program, uint32_t line);
RubyValue moduloValues(const RubyValue& a, const RubyValue& b, const Program& program, uint32_t line);
RubyValue negateValue(const RubyValue& a, const Program& program, uint32_t line);

enum class CompareOp : uint8_t { Less, LessEqual, Greater, GreaterEqual };
bool compareOrdered(const RubyValue& a, const RubyValue& b, CompareOp op, const Program& program, uint32_t line);
// Deep for arrays and maps; raises past 200 levels, which a container holding itself reaches,
// and past 16 million compared elements, which sharing one container many times can reach.
bool valuesEqual(const RubyValue& a, const RubyValue& b);

// Appends the text of a value (its toString); false when the text passed `maxBytes`, which
// stops its making early. Raises on nesting that is too deep.
bool appendText(std::string& out, const RubyValue& value, size_t maxBytes);
// The text of a value, or the error "string is too long" past `maxBytes`.
std::string textOf(const RubyValue& value, size_t maxBytes);

// A map key: nil, a number, a boolean or a string, as text; 1 and "1" are one key.
std::string valueKeyString(const RubyValue& key);
const RubyValue* findMapValue(const RubyMap& map, const RubyValue& key);
RubyValue& setMapValue(RubyMap& map, const RubyValue& key);
RubyValue arrayGet(const RubyValue& object, const RubyValue& index, const Program& program, uint32_t line);

// Wrapping 64-bit arithmetic, done in unsigned so that an overflow is defined.
inline int64_t wrapAdd(int64_t a, int64_t b) { return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b)); }
inline int64_t wrapSubtract(int64_t a, int64_t b) { return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b)); }
inline int64_t wrapMultiply(int64_t a, int64_t b) { return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b)); }
// Truncating remainder with the sign of the dividend; b is not 0. The lowest integer % -1 would
// trap in the division, and is 0.
inline int64_t integerRemainder(int64_t a, int64_t b) { return b == -1 ? 0 : a - (a / b) * b; }

}  // namespace orvane::ruby
