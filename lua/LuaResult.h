// The outcome of any run of OrvaneLua: a run never raises, its failure stands here.
#pragma once

#include <cstdint>
#include <string>

#include "lua/LuaValue.h"

namespace orvane::lua {

struct LuaResult {
    bool success = false;   // the script ran to its end or called os.exit
    LuaValue value;         // what the chunk returned; several values as an array
    std::string error;      // error text when success is false
    bool exited = false;    // os.exit ended the run, with a code of 0 or more
    int32_t exitCode = 0;
};

}  // namespace orvane::lua
