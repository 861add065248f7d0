// Entry point: derive the runtime path, register the modules, find the bootstrap script and
// hand control to it. The executable has no main loop of its own.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "host/CommandLine.h"
#include "host/HeadlessRun.h"
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
    CommandLine line;
    std::string complaint;
    if (!parseCommandLine(argc, argv, line, complaint)) {
        std::cerr << "orvanetide: " << complaint << '\n' << usageText();
        return 2;
    }
    if (line.help) {
        std::cout << usageText();
        return 0;
    }
    // Paths of options are taken before a game's folder becomes the working one.
    std::error_code pathError;
    if (!line.capture.empty()) {
        headlessRun.captureFolder = std::filesystem::absolute(line.capture, pathError).string();
        std::filesystem::create_directories(headlessRun.captureFolder, pathError);
        if (!std::filesystem::is_directory(headlessRun.captureFolder, pathError)) {
            std::cerr << "orvanetide: cannot make the capture folder " << line.capture << '\n';
            return 2;
        }
    }
    if (!line.input.empty() && !loadReplay(line.input, headlessRun.replay, complaint)) {
        std::cerr << "orvanetide: " << complaint << '\n';
        return 2;
    }
    headlessRun.frameLimit = line.frames;
    headlessRun.captureEvery = line.captureEvery;
    headlessRun.fixedClock = line.fixedClock;
    if (line.fixedClock) engine.fixedClockMs = 0;
    path = "./";
    if (argc >= 1 && argv[0]) {
        std::string program = argv[0];
        size_t slash = program.rfind('/');
        if (slash != std::string::npos) path = program.substr(0, slash + 1);
    }
    try {
        registerFunctions();
        if (line.version) {
            std::cout << "OrvaneTide " << toFloat(engine.pullVariable("ORVANE_VERSION")) << " ("
                      << engine.pullVariable("ORVANE_RELEASE").toString() << "), engine "
                      << engine.pullVariable("ORVANE_ENGINE_VERSION").toString() << '\n';
            return 0;
        }
        std::string bootstrap = "lua.ov";
        if (!line.game.empty()) {
            // The game's relative files resolve from its own folder.
            const GameScript game = locateGame(line.game);
            std::error_code error;
            std::filesystem::current_path(game.folder, error);
            if (error) throw std::runtime_error("Failed to enter the game's folder: " + game.folder);
            bootstrap = game.script;
        } else if (canOpen(path + "../Resources/lua.ov")) {
            bootstrap = path + "../Resources/lua.ov";
        } else if (canOpen(std::string("OrvaneTide") + ".app/Contents/Resources/lua.ov")) {
            bootstrap = "OrvaneTide.app/Contents/Resources/lua.ov";
        }
        engine.runScript("runFile('" + escapeForLiteral(bootstrap) + "')");
    } catch (const std::exception& e) {
        std::cerr << "OrvaneTide startup error: " << e.what() << '\n' << std::flush;
        return 1;
    }
    return 0;
}
