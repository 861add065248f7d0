// Runs a script test's source in a child process, in a fresh folder where it is lua.ov, as the
// executable would; the caller says how the child runs it. Standard output, standard error and
// the exit status come back.
#pragma once

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <sstream>
#include <string>

namespace child_run {

namespace fs = std::filesystem;

struct RunResult {
    std::string out, err;
    int status = -1;
};

inline std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

inline std::string drain(int fd) {
    std::string text;
    char buffer[4096];
    ssize_t n;
    while ((n = read(fd, buffer, sizeof buffer)) > 0) text.append(buffer, size_t(n));
    close(fd);
    return text;
}

// `run` executes in the child with the folder as working directory; an exception from it
// ends the child as the executable's startup failure does.
inline RunResult runInChild(const fs::path& script, const std::function<void()>& run) {
    fs::path work = fs::temp_directory_path() / ("ot-child-" + std::to_string(getpid()));
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
            run();
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

}  // namespace child_run
