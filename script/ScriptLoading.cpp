// Script text and files to callable chunks, with a cache of compiled files keyed by path and
// checked against the file's stat stamp.
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "script/OrvaneScript.h"
#include "script/Paths.h"

namespace orvane {

namespace {

// A block that is never closed is found before any line runs.
void checkBlocksClosed(const std::vector<ParsedScriptLine>& lines) {
    for (const ParsedScriptLine& line : lines) {
        if (line.matchIndex != kNoLink) continue;
        switch (line.kind) {
        case LineKind::Function:
        case LineKind::DecayFunction:
        case LineKind::NativeFunction:
        case LineKind::LocalFunction: throw std::runtime_error("Missing 'end' for function block");
        case LineKind::For: throw std::runtime_error("Missing 'end' for for block");
        case LineKind::Repeat: throw std::runtime_error("Missing 'until' for repeat block");
        case LineKind::While: throw std::runtime_error("Missing 'end' for while block");
        case LineKind::If: throw std::runtime_error("Missing 'end' for if block");
        default: break;
        }
    }
}

const char* kErrorPrefix = "OrvaneScript error:";

}  // namespace

std::vector<ParsedScriptLine> OrvaneScript::compileLines(const std::string& text) {
    std::vector<ParsedScriptLine> lines;
    try {
        lines = parseLines(text);
    } catch (const TokenError& e) {
        LocationGuard location(*this);
        currentLineNumber = e.lineNumber;
        currentLine = nullptr;
        currentSourceText = e.lineText;
        throwError(e.what(), e.nearToken);
    }
    checkBlocksClosed(lines);
    return lines;
}

CallablePtr OrvaneScript::makeChunk(std::vector<ParsedScriptLine>&& lines, const std::string& root,
                                    const std::string& path) {
    auto chunk = std::make_shared<ScriptCallable>();
    chunk->isNative = false;
    chunk->isLoadedChunk = true;
    chunk->body = std::move(lines);
    chunk->sourceRoot = root;
    chunk->sourcePath = path;
    return chunk;
}

void OrvaneScript::runScript(const std::string& text) {
    if (callDepth == 0) markStackBase();
    LocationGuard location(*this);
    std::vector<ParsedScriptLine> lines;  // outlives the catch, which may name its current line
    try {
        lines = compileLines(text);
        size_t position = 0;
        BlockSignal signal = BlockSignal::None;
        executeParsedBlock(lines, position, signal);
        if (signal == BlockSignal::Break) throw std::runtime_error("break used outside a loop");
        if (signal == BlockSignal::None && position < lines.size()) {
            // A closer with no block open would otherwise end the script silently.
            currentLine = &lines[position];
            currentLineNumber = lines[position].lineNumber;
            currentSourceText.clear();
            throwError("Unexpected '" + lines[position].tokens[0] + "' outside any block", lines[position].tokens[0]);
        }
    } catch (const std::exception& e) {
        if (std::string_view(e.what()).starts_with(kErrorPrefix)) throw;
        throwError(e.what(), nearToken.empty() ? std::string_view("script") : std::string_view(nearToken));
    }
}

Variable OrvaneScript::runScriptFilePath(const std::string& path) {
    Variable argument(path);
    return runScriptFile(&argument, 1);
}

Variable OrvaneScript::loadScriptChunk(const Variable* args, size_t count) {
    if (count < 1 || args[0].type != VarType::String) throw std::runtime_error("load(scriptText) requires a script string");
    size_t pathHeight = sourcePathStack.size();
    std::string chunkName;
    if (count > 1 && args[1].type == VarType::String && !args[1].asString().empty()) {
        chunkName = args[1].asString();
        sourcePathStack.push_back(&chunkName);
    }
    std::vector<ParsedScriptLine> lines;
    try {
        lines = compileLines(args[0].asString());
    } catch (const std::exception& e) {
        sourcePathStack.resize(pathHeight);
        return Variable::makeMulti(VariableArray{Variable(), Variable(std::string(e.what()))});
    }
    sourcePathStack.resize(pathHeight);
    return Variable(makeChunk(std::move(lines), {}, {}));
}

Variable OrvaneScript::loadScriptFile(const Variable* args, size_t count) {
    if (count < 1 || args[0].type != VarType::String) throw std::runtime_error("loadFile(path) requires a script path string");
    const std::string path = resolvePath(args[0].asString());
    const std::string directory = pathDirectory(path);
    auto failure = [&](const std::string& text) {
        return Variable::makeMulti(VariableArray{Variable(), Variable(text)});
    };
    struct stat info;
    if (::stat(path.c_str(), &info) != 0 || S_ISDIR(info.st_mode)) return failure("Failed to open script file: " + path);

    ScriptFileCacheEntry& entry = scriptFileCache[path];
    if (entry.chunk && entry.size == info.st_size && entry.mtimeSec == int64_t(info.st_mtim.tv_sec) &&
        entry.mtimeNsec == int64_t(info.st_mtim.tv_nsec))
        return Variable(entry.chunk);

    std::ifstream file(path, std::ios::binary);
    if (!file) return failure("Failed to open script file: " + path);
    std::ostringstream content;
    content << file.rdbuf();
    if (file.bad()) return failure("Failed to open script file: " + path);

    size_t rootHeight = sourceRootStack.size(), pathHeight = sourcePathStack.size();
    if (!directory.empty()) sourceRootStack.push_back(&directory);
    sourcePathStack.push_back(&path);
    std::vector<ParsedScriptLine> lines;
    try {
        lines = compileLines(content.str());
    } catch (const std::exception& e) {
        sourceRootStack.resize(rootHeight);
        sourcePathStack.resize(pathHeight);
        entry.chunk.reset();
        return failure(e.what());
    }
    sourceRootStack.resize(rootHeight);
    sourcePathStack.resize(pathHeight);
    entry.chunk = makeChunk(std::move(lines), directory, path);
    entry.size = info.st_size;
    entry.mtimeSec = int64_t(info.st_mtim.tv_sec);
    entry.mtimeNsec = int64_t(info.st_mtim.tv_nsec);
    return Variable(entry.chunk);
}

Variable OrvaneScript::runScriptFile(const Variable* args, size_t count) {
    Variable loaded = loadScriptFile(args, count);
    if (const VariableArray* failure = multiValuesPtr(loaded)) {
        if (failure->size() > 1 && (*failure)[1].type == VarType::String) throw std::runtime_error((*failure)[1].asString());
        throw std::runtime_error("Failed to load script file");
    }
    return invokeCallableFast(loaded, nullptr, 0);
}

}  // namespace orvane
