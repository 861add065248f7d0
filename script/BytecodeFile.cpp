// OrvaneScript bytecode files ("OSBC"): the source lines as token lists plus the instructions
// and side tables. Everything that follows from the tokens (analyses, kinds, block links,
// assignment shapes, compiled expressions) is prepared again on reading, so the file has no tie
// to the memory layout of those structures.
#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "script/Bytecode.h"
#include "script/OrvaneScript.h"

namespace orvane {

namespace {

constexpr uint16_t kWrittenVersion = 6;

struct Writer {
    std::vector<uint8_t> bytes;
    void u8(uint8_t v) { bytes.push_back(v); }
    void u16(uint16_t v) {
        u8(uint8_t(v));
        u8(uint8_t(v >> 8));
    }
    void u32(uint32_t v) {
        for (int shift = 0; shift < 32; shift += 8) u8(uint8_t(v >> shift));
    }
    void boolean(bool v) { u8(v ? 1 : 0); }
    void string(const std::string& s) {
        if (s.size() > UINT32_MAX) throw std::runtime_error("Bytecode string too long to store");
        u32(uint32_t(s.size()));
        bytes.insert(bytes.end(), s.begin(), s.end());
    }
    void count(size_t n) {
        if (n > UINT32_MAX) throw std::runtime_error("Bytecode table too long to store");
        u32(uint32_t(n));
    }
};

// Every read tests first that its bytes are there, so nothing is allocated for data that the
// file doesn't hold.
struct Reader {
    const std::vector<uint8_t>& bytes;
    const std::string& path;
    size_t at = 0;

    size_t left() const { return bytes.size() - at; }
    [[noreturn]] void truncated() const { throw std::runtime_error("Invalid bytecode file (truncated): " + path); }
    void need(size_t n) const {
        if (n > left()) truncated();
    }
    uint8_t u8() {
        need(1);
        return bytes[at++];
    }
    uint16_t u16() {
        need(2);
        uint16_t v = uint16_t(bytes[at] | bytes[at + 1] << 8);
        at += 2;
        return v;
    }
    uint32_t u32() {
        need(4);
        uint32_t v = uint32_t(bytes[at]) | uint32_t(bytes[at + 1]) << 8 | uint32_t(bytes[at + 2]) << 16 |
                     uint32_t(bytes[at + 3]) << 24;
        at += 4;
        return v;
    }
    bool boolean() { return u8() != 0; }
    std::string string() {
        uint32_t length = u32();
        need(length);
        std::string s(reinterpret_cast<const char*>(bytes.data() + at), length);
        at += length;
        return s;
    }
    // A record count, refused at once when the records could not fit in what is left.
    uint32_t count(size_t smallestRecord) {
        uint32_t n = u32();
        if (smallestRecord && n > left() / smallestRecord) truncated();
        return n;
    }
};

template <typename Record>
void writeLoops(Writer& w, const std::vector<Record>& loops) {
    w.count(loops.size());
    for (const Record& loop : loops) {
        w.u32(loop.line);
        w.u32(loop.chunk);
    }
}

template <typename Record>
void readLoops(Reader& r, std::vector<Record>& loops) {
    uint32_t n = r.count(8);
    loops.reserve(n);
    for (uint32_t i = 0; i < n; ++i) {
        Record loop;
        loop.line = r.u32();
        loop.chunk = r.u32();
        loops.push_back(loop);
    }
}

}  // namespace

std::vector<uint8_t> OrvaneScript::serializeBytecode(const BytecodeProgram& program) {
    Writer w;
    w.bytes.insert(w.bytes.end(), {'O', 'S', 'B', 'C'});
    // Always the newest layout, also for a program that came from an older file.
    w.u16(kWrittenVersion);
    w.string(program.sourceRoot);
    w.string(program.sourcePath);
    w.count(program.lines.size());
    for (const ParsedScriptLine& line : program.lines) {
        w.string(line.text);
        w.u32(uint32_t(line.lineNumber));
        w.count(line.tokens.size());
        for (const std::string& token : line.tokens) w.string(token);
    }
    w.count(program.instructions.size());
    for (const Instruction& instruction : program.instructions) {
        w.u8(uint8_t(instruction.opcode));
        w.u32(instruction.a);
        w.u32(instruction.b);
    }
    w.count(program.chunks.size());
    for (const BytecodeChunk& chunk : program.chunks) {
        w.u32(chunk.firstInstruction);
        w.u32(chunk.instructionCount);
        w.boolean(chunk.hasLocalDeclarations);
    }
    w.count(program.ifGroups.size());
    for (const BytecodeIfGroup& group : program.ifGroups) {
        w.count(group.branches.size());
        for (const BytecodeIfBranch& branch : group.branches) {
            w.u32(branch.line);
            w.u32(branch.chunk);
            w.boolean(branch.isElse);
        }
    }
    writeLoops(w, program.whileLoops);
    w.count(program.repeatLoops.size());
    for (const BytecodeRepeatLoop& loop : program.repeatLoops) {
        w.u32(loop.untilLine);
        w.u32(loop.chunk);
    }
    writeLoops(w, program.numericForLoops);
    writeLoops(w, program.genericForLoops);
    w.count(program.functions.size());
    for (const BytecodeFunctionDecl& function : program.functions) {
        w.u32(function.line);
        w.u32(function.chunk);
        w.u32(function.bodyStart);
        w.u32(function.bodyEnd);
        w.string(function.sourceRoot);
        w.string(function.sourcePath);
    }
    return std::move(w.bytes);
}

void OrvaneScript::saveBytecode(const BytecodeProgram& program, const std::string& path) {
    std::vector<uint8_t> bytes = serializeBytecode(program);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) throw std::runtime_error("Failed to open bytecode file for writing: " + path);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    if (!out.flush()) throw std::runtime_error("Failed to write bytecode file: " + path);
}

BytecodeProgram OrvaneScript::deserializeBytecode(const std::vector<uint8_t>& bytes, const std::string& path) {
    Reader r{bytes, path};
    r.need(4);
    if (bytes[0] != 'O' || bytes[1] != 'S' || bytes[2] != 'B' || bytes[3] != 'C')
        throw std::runtime_error("Invalid bytecode file (bad magic): " + path);
    r.at = 4;
    // Built aside and handed out only when complete.
    BytecodeProgram program;
    program.version = r.u16();
    if (program.version < 4 || program.version > 6)
        throw std::runtime_error("Unsupported bytecode version: " + std::to_string(program.version));
    bool hasPaths = program.version > 4, hasLineNumbers = program.version > 5;
    program.sourceRoot = r.string();
    if (hasPaths) program.sourcePath = r.string();

    // Line records are large in memory, so they grow only as their bytes are read.
    uint32_t lineCount = r.count(hasLineNumbers ? 12 : 8);
    for (uint32_t i = 0; i < lineCount; ++i) {
        ParsedScriptLine line;
        line.text = r.string();
        line.lineNumber = hasLineNumbers ? r.u32() : i;
        uint32_t tokenCount = r.count(4);
        for (uint32_t t = 0; t < tokenCount; ++t) line.tokens.push_back(r.string());
        line.analyses.reserve(line.tokens.size());
        for (const std::string& token : line.tokens) line.analyses.push_back(analyseToken(token));
        program.lines.push_back(std::move(line));
    }
    prepareParsedLines(program.lines);

    // Indices are taken as they are; the executor checks each against its table when it runs.
    uint32_t instructionCount = r.count(9);
    program.instructions.reserve(instructionCount);
    for (uint32_t i = 0; i < instructionCount; ++i) {
        Instruction instruction;
        instruction.opcode = Opcode(r.u8());
        instruction.a = r.u32();
        instruction.b = r.u32();
        program.instructions.push_back(instruction);
    }
    uint32_t chunkCount = r.count(9);
    program.chunks.reserve(chunkCount);
    for (uint32_t i = 0; i < chunkCount; ++i) {
        BytecodeChunk chunk;
        chunk.firstInstruction = r.u32();
        chunk.instructionCount = r.u32();
        chunk.hasLocalDeclarations = r.boolean();
        program.chunks.push_back(chunk);
    }
    uint32_t groupCount = r.count(4);
    program.ifGroups.reserve(groupCount);
    for (uint32_t i = 0; i < groupCount; ++i) {
        BytecodeIfGroup group;
        uint32_t branchCount = r.count(9);
        group.branches.reserve(branchCount);
        for (uint32_t b = 0; b < branchCount; ++b) {
            BytecodeIfBranch branch;
            branch.line = r.u32();
            branch.chunk = r.u32();
            branch.isElse = r.boolean();
            group.branches.push_back(branch);
        }
        program.ifGroups.push_back(std::move(group));
    }
    readLoops(r, program.whileLoops);
    uint32_t repeatCount = r.count(8);
    program.repeatLoops.reserve(repeatCount);
    for (uint32_t i = 0; i < repeatCount; ++i) {
        BytecodeRepeatLoop loop;
        loop.untilLine = r.u32();
        loop.chunk = r.u32();
        program.repeatLoops.push_back(loop);
    }
    readLoops(r, program.numericForLoops);
    readLoops(r, program.genericForLoops);
    uint32_t functionCount = r.count(hasPaths ? 24 : 20);
    program.functions.reserve(functionCount);
    for (uint32_t i = 0; i < functionCount; ++i) {
        BytecodeFunctionDecl function;
        function.line = r.u32();
        function.chunk = r.u32();
        function.bodyStart = r.u32();
        function.bodyEnd = r.u32();
        function.sourceRoot = r.string();
        if (hasPaths) function.sourcePath = r.string();
        program.functions.push_back(std::move(function));
    }
    // Bytes behind the last function are ignored.
    return program;
}

BytecodeProgram OrvaneScript::loadBytecode(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw std::runtime_error("Failed to open bytecode file for reading: " + path);
    in.seekg(0, std::ios::end);
    std::streamoff size = in.tellg();
    if (size < 0) throw std::runtime_error("Failed to size bytecode file: " + path);
    in.seekg(0, std::ios::beg);
    // Grown as bytes arrive: a directory, for one, claims an enormous size and gives nothing.
    std::vector<uint8_t> bytes;
    char buffer[1 << 16];
    while (bytes.size() < uint64_t(size)) {
        in.read(buffer, std::streamsize(std::min<uint64_t>(sizeof buffer, uint64_t(size) - bytes.size())));
        std::streamsize got = in.gcount();
        if (got <= 0) throw std::runtime_error("Invalid bytecode file (truncated data): " + path);
        bytes.insert(bytes.end(), buffer, buffer + got);
    }
    return deserializeBytecode(bytes, path);
}

}  // namespace orvane
