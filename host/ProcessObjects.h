// The process-wide objects, constructed before main in the order of ProcessObjects.cpp.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "lua/LuaVM.h"
#include "ruby/RubyVM.h"
#include "script/OrvaneScript.h"

namespace orvane {

// A virtual button rectangle of Orvane.pushButton.
struct buttonVec {
    int32_t x1, x2, y1, y2, result;
};

extern OrvaneScript engine;
extern std::string path;
extern std::vector<buttonVec> buttons;
extern std::chrono::system_clock::time_point wtime;
extern std::chrono::system_clock::time_point gtime;
// One VM of each dialect: every Lua.* call shares one set of globals, every Ruby.* call the other.
extern lua::LuaVM luaVM;
extern ruby::RubyVM rubyVM;

}  // namespace orvane
