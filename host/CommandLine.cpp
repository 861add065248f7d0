#include "host/CommandLine.h"

#include <filesystem>

namespace orvane {

namespace {

// A decimal number of at most 18 digits; -1 for anything else.
int64_t wholeNumber(const std::string& text) {
    if (text.empty() || text.size() > 18) return -1;
    int64_t number = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return -1;
        number = number * 10 + (c - '0');
    }
    return number;
}

}  // namespace

bool parseCommandLine(int argc, char** argv, CommandLine& line, std::string& error) {
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument == "--help" || argument == "-h") {
            line.help = true;
        } else if (argument == "--version") {
            line.version = true;
        } else if (argument == "--fixed-clock") {
            line.fixedClock = true;
        } else if (argument == "--frames" || argument == "--capture" || argument == "--capture-every" ||
                   argument == "--input") {
            if (i + 1 >= argc) {
                error = argument + " needs a value";
                return false;
            }
            const std::string value = argv[++i];
            if (argument == "--capture") {
                line.capture = value;
            } else if (argument == "--input") {
                line.input = value;
            } else {
                const int64_t number = wholeNumber(value);
                if (number < (argument == "--frames" ? 0 : 1)) {
                    error = argument + " takes a whole number" + (argument == "--frames" ? "" : " above 0") +
                            ", not " + value;
                    return false;
                }
                (argument == "--frames" ? line.frames : line.captureEvery) = number;
            }
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
    return "usage: orvanetide [options] [GAME]\n"
           "       orvanetide --help | --version\n"
           "Runs GAME, a script file or a folder holding lua.ov, in the folder of that script.\n"
           "Without GAME, lua.ov is sought beside the executable as ../Resources/lua.ov, then as\n"
           "OrvaneTide.app/Contents/Resources/lua.ov and lua.ov in the working folder.\n"
           "Options for headless, reproducible runs:\n"
           "  --frames N          Metal['checkClose'] answers true after N frames shown\n"
           "  --capture DIR       write every frame shown as DIR/frame-000001.png, ...\n"
           "  --capture-every K   only every Kth frame\n"
           "  --input FILE        replay the timed input events of FILE\n"
           "  --fixed-clock       clocks advance by ORVANE_FRAMERATE ms a frame; sleep returns at once\n";
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
