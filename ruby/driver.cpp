// orvaneruby FILE: runs one OrvaneRuby script. What the script prints goes to standard output;
// a failure's message goes to standard error, after everything printed before it, with status 1.
#include <cstdio>
#include <iostream>

#include "ruby/RubyVM.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: orvaneruby FILE\n";
        return 2;
    }
    orvane::ruby::RubyVM vm;
    orvane::ruby::RubyResult result = vm.runScriptFile(argv[1]);
    std::fflush(stdout);
    if (!result.success) {
        std::fprintf(stderr, "%s\n", result.error.c_str());
        return 1;
    }
    return 0;
}
