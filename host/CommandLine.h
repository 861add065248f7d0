// The executable's command line: a game to run instead of the bootstrap places, and the options
// for help and version.
#pragma once

#include <cstdint>
#include <string>

namespace orvane {

struct CommandLine {
    std::string game;  // a script file, or a folder holding lua.ov; empty: the bootstrap places
    bool help = false;
    bool version = false;
    // Headless runs for automated tests of a game.
    int64_t frames = -1;         // --frames N: Metal.checkClose answers true after N frames
    std::string capture;         // --capture DIR: frames shown are written there as PNG
    int64_t captureEvery = 1;    // --capture-every K: every Kth frame only
    std::string input;           // --input FILE: a replay of timed input events
    bool fixedClock = false;     // --fixed-clock: clocks advance by frames shown
};

// Reads the arguments behind the program's name. False, with the complaint in `error`, for an
// unknown option or a second game.
bool parseCommandLine(int argc, char** argv, CommandLine& line, std::string& error);
std::string usageText();

// The script a game names, and the folder it runs in: a folder's own lua.ov, or the file itself.
struct GameScript {
    std::string folder;
    std::string script;
};
GameScript locateGame(const std::string& game);

}  // namespace orvane
