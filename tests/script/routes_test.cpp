// Every script test runs again on the reference route: parsed lines without compiled forms,
// walked by executeParsedBlock. Its output must equal the compiled route's, except where a
// script shows one of the two compiled rules (0 is false in a compiled condition, a compiled
// `^` gives a float); such a script has its reference output in <name>.reference.out.
#include <gtest/gtest.h>

#include "child_run.h"
#include "host/HostModules.h"
#include "host/ProcessObjects.h"

namespace fs = std::filesystem;

using child_run::readFile;
using child_run::RunResult;

namespace {

// Runs a bootstrap script on the reference route, as the executable would.
RunResult runReference(const fs::path& script) {
    return child_run::runInChild(script, [] {
        orvane::path = "./";
        orvane::engine.referenceRoute = true;
        orvane::registerFunctions();
        orvane::engine.runScript("runFile('lua.ov')");
    });
}

std::string expected(const fs::path& script, const char* extension) {
    fs::path reference = script;
    reference.replace_extension(std::string(".reference") + extension);
    if (fs::exists(reference)) return readFile(reference);
    fs::path plain = script;
    plain.replace_extension(extension);
    return fs::exists(plain) ? readFile(plain) : std::string();
}

}  // namespace

TEST(Routes, EveryScriptTestGivesTheSameResultOnTheReferenceRoute) {
    int checked = 0;
    for (const char* folder : {"script", "host"}) {
        for (const auto& entry : fs::directory_iterator(fs::path(OT_TESTS_DIR) / folder)) {
            const fs::path& script = entry.path();
            if (script.extension() != ".ov") continue;
            SCOPED_TRACE(script.string());
            RunResult result = runReference(script);
            EXPECT_EQ(result.out, expected(script, ".out"));
            EXPECT_EQ(result.err, expected(script, ".err"));
            fs::path statusFile = script;
            statusFile.replace_extension(".status");
            int status = fs::exists(statusFile) ? std::stoi(readFile(statusFile)) : 0;
            EXPECT_EQ(result.status, status);
            ++checked;
        }
    }
    EXPECT_GT(checked, 20);
}
