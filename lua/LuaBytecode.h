// A compiled OrvaneLua script: the "OLBC" bundle of a chunk name and the source text. Running
// it parses the source again; nothing of the tree is stored.
#pragma once

#include <cstdint>
#include <vector>

namespace orvane::lua {

struct LuaBytecode {
    std::vector<uint8_t> bytes;
};

}  // namespace orvane::lua
