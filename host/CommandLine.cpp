#include "host/CommandLine.h"

#include <filesystem>

namespace orvane {

bool parseCommandLine(int argc, char** argv, CommandLine& line, std::string& error) {
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            line.help = true;
        } else if (argument == "--version") {
            line.version = true;
        } else if (argument.size() > 1 && argument[0] == '-') {
            error = "unknown option " + argument;
            return false;
        } else if (!line.game.empty()) {
            error = "one game at a time, not also " + argument;
            return false;
        } else {
            line.game = argument;
        }
    }
    return true;
}

std::string usageText() {
    return "usage: orvanetide [GAME]\n"
           "       orvanetide --help | --version\n"
           "Runs GAME, a script file or a folder holding lua.ov, in the folder of that script.\n"
           "Without GAME, lua.ov is sought beside the executable as ../Resources/lua.ov, then as\n"
           "OrvaneTide.app/Contents/Resources/lua.ov and lua.ov in the working folder.\n";
}

GameScript locateGame(const std::string& game) {
    namespace fs = std::filesystem;
    std::error_code error;
    const fs::path given(game);
    if (fs::is_directory(given, error)) return {given.string(), "lua.ov"};
    const fs::path folder = given.parent_path();
    return {folder.empty() ? std::string(".") : folder.string(), given.filename().string()};
}

}  // namespace orvane
