// Script text and files to callable chunks, with a cache of compiled files keyed by path and
// checked against the file's stat stamp.
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "script/Bytecode.h"
#include "script/OrvaneScript.h"
#include "script/Paths.h"

namespace orvane {

namespace {

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
    return lines;
}

CallablePtr OrvaneScript::makeChunk(const std::shared_ptr<BytecodeProgram>& program) {
    auto chunk = std::make_shared<ScriptCallable>();
    chunk->isNative = false;
    chunk->isLoadedChunk = true;
    chunk->bytecode = program;
    chunk->chunkIndex = 0;
    chunk->sourceRoot = program->sourceRoot;
    chunk->sourcePath = program->sourcePath;
    if (referenceRoute) {
        chunk->body = program->lines;
        prepareParsedLines(chunk->body, false);
    }
    return chunk;
}

void OrvaneScript::runScript(const std::string& text) {
    if (callDepth == 0) markStackBase();
    LocationGuard location(*this);
    std::shared_ptr<BytecodeProgram> program;  // outlives the catch, which may name its current line
    std::vector<ParsedScriptLine> referenceLines;
    try {
        program = compileToBytecodeInternal(text);
        if (!referenceRoute) {
            runBytecodeProgram(program);
        } else {
            referenceLines = program->lines;
            prepareParsedLines(referenceLines, false);
            size_t position = 0;
            BlockSignal signal = BlockSignal::None;
            executeParsedBlock(referenceLines, position, signal);
            if (signal == BlockSignal::Break) throw std::runtime_error("break used outside a loop");
        }
        rethrowPendingCoroutineException();
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
    std::shared_ptr<BytecodeProgram> program;
    try {
        program = compileToBytecodeInternal(args[0].asString());
    } catch (const std::exception& e) {
        sourcePathStack.resize(pathHeight);
        return Variable::makeMulti(VariableArray{Variable(), Variable(std::string(e.what()))});
    }
    sourcePathStack.resize(pathHeight);
    program->sourcePath.clear();
    program->sourceRoot.clear();
    return Variable(makeChunk(program));
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
    if (entry.program && entry.size == info.st_size && entry.mtimeSec == int64_t(info.st_mtim.tv_sec) &&
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
    std::shared_ptr<BytecodeProgram> program;
    try {
        program = compileToBytecodeInternal(content.str());
    } catch (const std::exception& e) {
        sourceRootStack.resize(rootHeight);
        sourcePathStack.resize(pathHeight);
        entry.program.reset();
        entry.chunk.reset();
        return failure(e.what());
    }
    sourceRootStack.resize(rootHeight);
    sourcePathStack.resize(pathHeight);
    // Functions of the file find their relative paths when called from elsewhere.
    program->sourceRoot = directory;
    program->sourcePath = path;
    for (BytecodeFunctionDecl& function : program->functions) {
        function.sourceRoot = directory;
        function.sourcePath = path;
    }
    entry.program = program;
    entry.chunk = makeChunk(program);
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
