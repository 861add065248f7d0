// The wide float of the time conversions: a 113-bit mantissa, so that a product of a 64-bit
// frame or millisecond count and a 32-bit rate is exact before it is divided. Arm's long double
// is that wide already; elsewhere the compiler's quad type stands in.
#pragma once

#include <cfloat>
#include <cstdint>

namespace orvane::audio {

#if LDBL_MANT_DIG >= 113
using Extended = long double;
#elif defined(__SIZEOF_FLOAT128__)
using Extended = __float128;
#else
using Extended = long double;
#endif

}  // namespace orvane::audio
