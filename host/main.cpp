// Entry point: derive the runtime path, register the modules, find the bootstrap script and
// hand control to it. The executable has no main loop of its own.
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "host/HostModules.h"
#include "host/ProcessObjects.h"

namespace {

bool canOpen(const std::string& name) {
    std::ifstream stream(name);
    return stream.good();
}

// Backslashes and apostrophes are escaped so that the name survives as a string literal.
std::string escapeForLiteral(const std::string& name) {
    std::string out;
    out.reserve(name.size());
    for (char c : name) {
        if (c == '\\' || c == '\'') out += '\\';
        out += c;
    }
    return out;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace orvane;
    path = "./";
    if (argc >= 1 && argv[0]) {
        std::string program = argv[0];
        size_t slash = program.rfind('/');
        if (slash != std::string::npos) path = program.substr(0, slash + 1);
    }
    try {
        registerFunctions();
        std::string bootstrap = "lua.ov";
        if (canOpen(path + "../Resources/lua.ov")) bootstrap = path + "../Resources/lua.ov";
        else if (canOpen(std::string("OrvaneTide") + ".app/Contents/Resources/lua.ov"))
            bootstrap = "OrvaneTide.app/Contents/Resources/lua.ov";
        engine.runScript("runFile('" + escapeForLiteral(bootstrap) + "')");
    } catch (const std::exception& e) {
        std::cerr << "OrvaneTide startup error: " << e.what() << '\n' << std::flush;
        return 1;
    }
    return 0;
}
