// Worker threads of the image operations: made per call, one per band of rows, joined
// before the call returns. Each band writes only its own rows, so no locks are needed.
#pragma once

#include <cstdint>
#include <functional>

namespace orvane {

// Upper bound of worker threads of any one operation; only the script thread changes it.
extern int32_t AllowedThreads;
// Grid spacing of the sampled renderers and of bilinearInPlace, in pixels; 1 is the finest.
extern int32_t step;

// Rows [0, rows) in bands of ceil(rows / threads); a band starting past the last row is not
// started. With one band the work runs on the caller.
void runCeilingBands(int32_t rows, int32_t threads, const std::function<void(int32_t first, int32_t end)>& work);
// Rows [0, rows) in `threads` bands of rows / threads, the first rows % threads of them one row
// longer; a band of no rows is not started. With one band the work runs on the caller.
void runRemainderBands(int32_t rows, int32_t threads, const std::function<void(int32_t first, int32_t end)>& work);

}  // namespace orvane
