// The members of `math`. Results are 32-bit like every number of the language.
#include <cmath>
#include <stdexcept>

#include "script/Operations.h"
#include "script/OrvaneScript.h"

namespace orvane {

namespace {

[[noreturn]] void fail(const char* message) { throw std::runtime_error(message); }

}  // namespace

Variable OrvaneScript::floorFunction(const Variable* args, size_t count) {
    if (count != 1) fail("math['floor'](x) requires exactly 1 argument");
    return Variable(saturatingInt(std::floor(toDouble(args[0]))));
}

Variable OrvaneScript::ceilFunction(const Variable* args, size_t count) {
    if (count != 1) fail("math['ceil'](x) requires exactly 1 argument");
    return Variable(saturatingInt(std::ceil(toDouble(args[0]))));
}

Variable OrvaneScript::absFunction(const Variable* args, size_t count) {
    if (count != 1) fail("math['abs'](x) requires exactly 1 argument");
    if (args[0].type == VarType::Float) return Variable(std::fabs(args[0].asFloat()));
    int32_t v = toInt(args[0]);
    // The most negative integer has no positive twin and wraps to itself.
    return Variable(int32_t(v < 0 ? 0u - uint32_t(v) : uint32_t(v)));
}

Variable OrvaneScript::minFunction(const Variable* args, size_t count) {
    if (count < 1) fail("math['min'](...) requires at least 1 argument");
    const Variable* best = &args[0];
    for (size_t i = 1; i < count; ++i)
        if (compareVariables(args[i], *best) < 0) best = &args[i];
    return *best;
}

Variable OrvaneScript::maxFunction(const Variable* args, size_t count) {
    if (count < 1) fail("math['max'](...) requires at least 1 argument");
    const Variable* best = &args[0];
    for (size_t i = 1; i < count; ++i)
        if (compareVariables(args[i], *best) > 0) best = &args[i];
    return *best;
}

Variable OrvaneScript::sinFunction(const Variable* args, size_t count) {
    if (count != 1) fail("math['sin'](x) requires exactly 1 argument");
    return Variable(float(std::sin(toDouble(args[0]))));
}

Variable OrvaneScript::cosFunction(const Variable* args, size_t count) {
    if (count != 1) fail("math['cos'](x) requires exactly 1 argument");
    return Variable(float(std::cos(toDouble(args[0]))));
}

Variable OrvaneScript::radFunction(const Variable* args, size_t count) {
    if (count != 1) fail("math['rad'](x) requires exactly 1 argument");
    return Variable(float(toDouble(args[0]) * 3.141592653589793 / 180.0));
}

Variable OrvaneScript::logFunction(const Variable* args, size_t count) {
    if (count != 1 && count != 2) fail("math['log'](x[, base]) requires 1 or 2 arguments");
    double x = toDouble(args[0]);
    if (x <= 0) fail("math['log'] requires a positive value");
    if (count == 1) return Variable(float(std::log(x)));
    double base = toDouble(args[1]);
    if (base <= 0 || base == 1) fail("math['log'] base must be positive and not equal to 1");
    return Variable(float(std::log(x) / std::log(base)));
}

Variable OrvaneScript::sqrtFunction(const Variable* args, size_t count) {
    if (count != 1) fail("math['sqrt'](x) requires exactly 1 argument");
    double x = toDouble(args[0]);
    if (x < 0) fail("math['sqrt'] requires a non-negative value");
    return Variable(float(std::sqrt(x)));
}

Variable OrvaneScript::randomSeedFunction(const Variable* args, size_t count) {
    if (count != 1) fail("math['randomSeed'](seed) requires exactly 1 argument");
    randomGenerator.seed(uint32_t(toInt(args[0])));
    return Variable();
}

}  // namespace orvane
