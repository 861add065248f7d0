// The members of `os` and `io`. A file object is a table of three natives that share one
// FileHandle; the stream closes when the last of them goes, a pipe through pclose.
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

#include "script/OrvaneScript.h"

namespace orvane {

struct FileHandle {
    std::shared_ptr<FILE> input;    // set when opened for reading
    std::shared_ptr<FILE> output;   // set when opened for writing; the same stream as input
    std::shared_ptr<FILE> process;  // set for io['popen'], closed by pclose
    bool isProcess = false;
};

namespace {

using HandlePtr = std::shared_ptr<FileHandle>;

struct OpenMode {
    bool readable, writable, append, truncate;
};

OpenMode parseMode(const std::string& mode) {
    OpenMode m{};
    m.writable = mode.find_first_of("wa+") != std::string::npos;
    m.readable = mode.find_first_of("r+") != std::string::npos || !m.writable;
    m.append = mode.find('a') != std::string::npos;
    m.truncate = mode.find('w') != std::string::npos && !m.append;
    return m;
}

const char* stdioMode(const OpenMode& m) {
    if (m.readable && m.writable) return m.append ? "a+b" : (m.truncate ? "w+b" : "r+b");
    if (m.writable) return m.append ? "ab" : "wb";
    return "rb";
}

// The arguments behind a leading Table, so that f['read'](f, ...) and f['read'](...) agree.
std::pair<const Variable*, size_t> dropSelf(const VariableArray& args) {
    if (!args.empty() && args[0].type == VarType::Table) return {args.data() + 1, args.size() - 1};
    return {args.data(), args.size()};
}

std::string readRest(FILE* stream) {
    std::string out;
    char buffer[65536];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, stream)) > 0) out.append(buffer, n);
    return out;
}

Variable readLine(FILE* stream, bool isProcess) {
    if (isProcess) {
        // One fgets per read: a longer line arrives in pieces.
        char buffer[4096];
        if (!std::fgets(buffer, sizeof buffer, stream)) return Variable();
        std::string line(buffer);
        if (!line.empty() && line.back() == '\n') line.pop_back();
        return Variable(std::move(line));
    }
    char* data = nullptr;
    size_t capacity = 0;
    ssize_t n = ::getline(&data, &capacity, stream);
    std::unique_ptr<char, decltype(&std::free)> owned(data, &std::free);
    if (n < 0) return Variable();
    std::string line(data, size_t(n));
    if (!line.empty() && line.back() == '\n') line.pop_back();
    return Variable(std::move(line));
}

}  // namespace

namespace {

Variable makeFileObject(OrvaneScript& script, const HandlePtr& handle) {
    NativeFunction read = [handle](const VariableArray& all) {
        if (!handle) throw std::runtime_error("file['read'] requires a valid file handle");
        auto [args, count] = dropSelf(all);
        FILE* stream = handle->isProcess ? handle->process.get() : handle->input.get();
        if (!stream) return Variable();
        bool whole = count > 0 && args[0].type == VarType::String && args[0].asString() == "*a";
        if (whole) return Variable(readRest(stream));
        return readLine(stream, handle->isProcess);
    };
    NativeFunction write = [handle](const VariableArray& all) {
        auto [args, count] = dropSelf(all);
        if (!handle || count == 0) throw std::runtime_error("file['write'] requires a valid file handle and at least one value");
        if (!handle->output) throw std::runtime_error("file['write'] requires a writable file handle");
        FILE* stream = handle->output.get();
        // A stream open both ways must be repositioned between reading and writing.
        if (handle->input) std::fseek(stream, 0, SEEK_CUR);
        for (size_t i = 0; i < count; ++i) {
            std::string text = args[i].toString();
            std::fwrite(text.data(), 1, text.size(), stream);
        }
        std::fflush(stream);
        return Variable(true);
    };
    NativeFunction close = [handle](const VariableArray&) {
        if (!handle) throw std::runtime_error("file['close'] requires a valid file handle");
        handle->input.reset();
        handle->output.reset();
        handle->process.reset();
        return Variable(true);
    };
    VariableTable object;
    object.emplace("read", script.makeNativeCallable(std::move(read), "file.read"));
    object.emplace("write", script.makeNativeCallable(std::move(write), "file.write"));
    object.emplace("close", script.makeNativeCallable(std::move(close), "file.close"));
    return Variable(std::move(object));
}

}  // namespace

Variable OrvaneScript::clockFunction(const Variable*, size_t count) {
    if (count != 0) throw std::runtime_error("os['clock']() takes no arguments");
    return Variable(float(double(elapsedMicroseconds()) / 1000000.0));
}

Variable OrvaneScript::timeFunction(const Variable*, size_t count) {
    if (count != 0) throw std::runtime_error("os['time']() takes no arguments");
    auto seconds = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch());
    return Variable(int32_t(uint32_t(uint64_t(seconds.count()))));
}

Variable OrvaneScript::openFileFunction(const Variable* args, size_t count) {
    if (count < 1 || args[0].type != VarType::String) throw std::runtime_error("io['open'](path[, mode]) requires a path string");
    const std::string& given = args[0].asString();
    // A zero byte would cut the name short and open some other file.
    if (given.find('\0') != std::string::npos) return Variable();
    std::string path = resolvePath(given);
    OpenMode mode = parseMode(count > 1 && args[1].type == VarType::String ? args[1].asString() : "r");
    FILE* raw = std::fopen(path.c_str(), stdioMode(mode));
    if (!raw) return Variable();
    std::shared_ptr<FILE> stream(raw, [](FILE* f) { std::fclose(f); });
    // Directories open for reading on some systems; they are no files to a script.
    struct stat info;
    if (fstat(fileno(raw), &info) != 0 || S_ISDIR(info.st_mode)) return Variable();
    auto handle = std::make_shared<FileHandle>();
    if (mode.readable) handle->input = stream;
    if (mode.writable) handle->output = stream;
    return makeFileObject(*this, handle);
}

Variable OrvaneScript::popenFunction(const Variable* args, size_t count) {
    if (count < 1 || args[0].type != VarType::String) throw std::runtime_error("io['popen'](path[, mode]) requires a path string");
    const std::string& command = args[0].asString();
    if (command.find('\0') != std::string::npos) return Variable();
    OpenMode mode = parseMode(count > 1 && args[1].type == VarType::String ? args[1].asString() : "r");
    // The pipe's direction: the standard call knows only "r" and "w".
    std::fflush(nullptr);
    FILE* raw = ::popen(command.c_str(), mode.readable ? "r" : "w");
    if (!raw) return Variable();
    auto handle = std::make_shared<FileHandle>();
    handle->process = std::shared_ptr<FILE>(raw, [](FILE* f) { ::pclose(f); });
    handle->isProcess = true;
    return makeFileObject(*this, handle);
}

}  // namespace orvane
