#include "host/ProcessObjects.h"

namespace orvane {

// One translation unit, so that the interpreter (and its standard library) exists first and
// is destroyed last.
OrvaneScript engine;
std::string path;
std::vector<buttonVec> buttons;
std::chrono::system_clock::time_point wtime = std::chrono::system_clock::now();
std::chrono::system_clock::time_point gtime = wtime;
lua::LuaVM luaVM;
ruby::RubyVM rubyVM;

}  // namespace orvane
