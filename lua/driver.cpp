// orvanelua FILE: runs an OrvaneLua script or "OLBC" bundle and prints what it prints. A failed
// run writes its message to standard error and ends with status 1; os.exit(n) ends with n.
#include <fstream>
#include <iostream>
#include <string>

#include "lua/LuaVM.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: orvanelua FILE\n";
        return 2;
    }
    std::string path = argv[1];
    char magic[4] = {};
    {
        std::ifstream probe(path, std::ios::binary);
        probe.read(magic, 4);
    }
    orvane::lua::LuaVM vm;
    bool bundle = std::string(magic, 4) == "OLBC";
    orvane::lua::LuaResult result = bundle ? vm.runBytecodeFile(path) : vm.runScriptFile(path);
    std::cout.flush();
    if (!result.success) {
        std::cerr << result.error << "\n";
        return 1;
    }
    return result.exited ? result.exitCode : 0;
}
