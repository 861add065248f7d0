// Every script test runs again on the reference route: parsed lines without compiled forms,
// walked by executeParsedBlock. Its output must equal the compiled route's, except where a
// script shows one of the two compiled rules (0 is false in a compiled condition, a compiled
// `^` gives a float); such a script has its reference output in <name>.reference.out.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "host/HostModules.h"
#include "host/ProcessObjects.h"

namespace fs = std::filesystem;

namespace {

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

std::string drain(int fd) {
    std::string text;
    char buffer[4096];
    ssize_t n;
    while ((n = read(fd, buffer, sizeof buffer)) > 0) text.append(buffer, size_t(n));
    close(fd);
    return text;
}

struct RunResult {
    std::string out, err;
    int status = -1;
};

// Runs a bootstrap script on the reference route in a child process, as the executable would.
RunResult runReference(const fs::path& script) {
    fs::path work = fs::temp_directory_path() / ("ot-route-" + std::to_string(getpid()));
    fs::remove_all(work);
    fs::create_directories(work);
    fs::copy_file(script, work / "lua.ov");
    fs::path files = script;
    files.replace_extension(".files");
    if (fs::is_directory(files)) fs::copy(files, work, fs::copy_options::recursive);

    int outPipe[2], errPipe[2];
    EXPECT_EQ(pipe(outPipe), 0);
    EXPECT_EQ(pipe(errPipe), 0);
    std::cout.flush();
    pid_t child = fork();
    if (child == 0) {
        dup2(outPipe[1], 1);
        dup2(errPipe[1], 2);
        close(outPipe[0]);
        close(errPipe[0]);
        if (chdir(work.c_str()) != 0) _exit(99);
        int status = 0;
        try {
            orvane::path = "./";
            orvane::engine.referenceRoute = true;
            orvane::registerFunctions();
            orvane::engine.runScript("runFile('lua.ov')");
        } catch (const std::exception& e) {
            std::cerr << "OrvaneTide startup error: " << e.what() << '\n';
            status = 1;
        }
        std::cout.flush();
        std::cerr.flush();
        _exit(status);
    }
    close(outPipe[1]);
    close(errPipe[1]);
    RunResult result;
    // Small outputs: reading one pipe to its end before the other cannot stall the child.
    result.out = drain(outPipe[0]);
    result.err = drain(errPipe[0]);
    int status = 0;
    waitpid(child, &status, 0);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    fs::remove_all(work);
    return result;
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
