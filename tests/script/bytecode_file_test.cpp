// Bytecode files: what is written reads back into a program that runs like its source, and any
// damaged file is refused with an error, never a crash, a hang or a huge allocation.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <new>
#include <random>
#include <sstream>

#include "child_run.h"
#include "host/HostModules.h"
#include "host/ProcessObjects.h"
#include "script/Bytecode.h"

namespace fs = std::filesystem;
using orvane::BytecodeProgram;
using orvane::engine;

// The largest single allocation while a test watches; the reader must stay near the file's size.
static std::atomic<bool> watchingAllocations{false};
static std::atomic<size_t> largestAllocation{0};

void* operator new(size_t size) {
    if (watchingAllocations.load(std::memory_order_relaxed)) {
        size_t seen = largestAllocation.load(std::memory_order_relaxed);
        while (size > seen && !largestAllocation.compare_exchange_weak(seen, size)) {
        }
    }
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }

using child_run::readFile;
using child_run::RunResult;

namespace {

const char* kSmallSource =
    "local total = 0\n"
    "for i = 1, 3\n"
    "  if i == 2\n"
    "    total += 10\n"
    "  elseif i == 3\n"
    "    total += 100\n"
    "  else\n"
    "    total += 1\n"
    "  end\n"
    "end\n"
    "function twice(v)\n"
    "  return v * 2\n"
    "end\n"
    "while total > 200\n"
    "  total -= 1\n"
    "end\n"
    "repeat\n"
    "  total += 1\n"
    "until total > 111\n"
    "for k in ['a', 'b']\n"
    "  total += 0\n"
    "end\n"
    "print(twice(total))\n";

std::vector<uint8_t> smallFile() { return engine.serializeBytecode(*engine.compileToBytecode(kSmallSource)); }

// The message of a refused read, or "accepted".
std::string readOutcome(const std::vector<uint8_t>& bytes) {
    try {
        engine.deserializeBytecode(bytes, "test.osbc");
        return "accepted";
    } catch (const std::runtime_error& e) {
        return e.what();
    }
}

// Little-endian pieces for hand-made files.
struct Bytes {
    std::vector<uint8_t> data;
    Bytes& raw(const std::string& s) {
        data.insert(data.end(), s.begin(), s.end());
        return *this;
    }
    Bytes& u8(uint8_t v) {
        data.push_back(v);
        return *this;
    }
    Bytes& u16(uint16_t v) { return u8(uint8_t(v)).u8(uint8_t(v >> 8)); }
    Bytes& u32(uint32_t v) { return u16(uint16_t(v)).u16(uint16_t(v >> 16)); }
    Bytes& str(const std::string& s) { return u32(uint32_t(s.size())).raw(s); }
};

// A file of one statement line `print(x)` and chunk 0 running it, in the given version.
Bytes oneLineFile(uint16_t version) {
    Bytes b;
    b.raw("OSBC").u16(version).str("root");
    if (version > 4) b.str("root/file.ov");
    b.u32(2);
    for (uint32_t i = 0; i < 2; ++i) {
        b.str(i == 0 ? "x = 5" : "print(x)");
        if (version > 5) b.u32(40 + i);
        if (i == 0) b.u32(3).str("x").str("=").str("5");
        else b.u32(4).str("print").str("(").str("x").str(")");
    }
    b.u32(2).u8(0).u32(0).u32(0).u8(0).u32(1).u32(0);  // two Statement instructions
    b.u32(1).u32(0).u32(2).u8(0);                       // chunk 0
    b.u32(0).u32(0).u32(0).u32(0).u32(0);               // no ifs, loops
    b.u32(1).u32(0).u32(0).u32(1).u32(1).str("froot");  // one function record
    if (version > 4) b.str("froot/f.ov");
    return b;
}

// Runs a script test's source in a child process as the executable would run lua.ov: compiled
// under the name lua.ov, and, with `throughFile`, written to bytes and read back first.
RunResult runSource(const fs::path& script, bool throughFile) {
    return child_run::runInChild(script, [throughFile] {
        orvane::path = "./";
        orvane::registerFunctions();
        auto program = engine.compileToBytecode(readFile("lua.ov"), "lua.ov");
        if (throughFile) {
            engine.saveBytecode(*program, "lua.osbc");
            program = std::make_shared<BytecodeProgram>(engine.loadBytecode("lua.osbc"));
        }
        engine.runBytecode(*program);
    });
}

}  // namespace

TEST(BytecodeFile, EveryScriptTestRunsTheSameAfterAWriteAndARead) {
    int checked = 0, matchingExpected = 0;
    for (const auto& entry : fs::directory_iterator(fs::path(OT_TESTS_DIR) / "script")) {
        const fs::path& script = entry.path();
        if (script.extension() != ".ov") continue;
        SCOPED_TRACE(script.string());
        RunResult direct = runSource(script, false);
        RunResult loaded = runSource(script, true);
        EXPECT_EQ(loaded.out, direct.out);
        EXPECT_EQ(loaded.err, direct.err);
        EXPECT_EQ(loaded.status, direct.status);
        fs::path expectedOut = script;
        expectedOut.replace_extension(".out");
        if (direct.out == readFile(expectedOut)) ++matchingExpected;
        ++checked;
    }
    EXPECT_GT(checked, 20);
    // The harness runs the scripts for real: most give their expected output this way too.
    EXPECT_GT(matchingExpected, checked / 2);
}

TEST(BytecodeFile, ReadBackLinesArePreparedAgainFromTheirTokens) {
    auto program = engine.compileToBytecode(kSmallSource, "dir/small.ov");
    std::vector<uint8_t> bytes = engine.serializeBytecode(*program);
    ASSERT_EQ(std::string(bytes.begin(), bytes.begin() + 4), "OSBC");
    EXPECT_EQ(bytes[4] | bytes[5] << 8, 6);
    BytecodeProgram loaded = engine.deserializeBytecode(bytes, "small.osbc");
    EXPECT_EQ(loaded.version, 6);
    EXPECT_EQ(loaded.sourceRoot, "dir");
    EXPECT_EQ(loaded.sourcePath, "dir/small.ov");
    ASSERT_EQ(loaded.lines.size(), program->lines.size());
    for (size_t i = 0; i < loaded.lines.size(); ++i) {
        const auto &a = program->lines[i], &b = loaded.lines[i];
        SCOPED_TRACE(a.text);
        EXPECT_EQ(b.text, a.text);
        EXPECT_EQ(b.lineNumber, a.lineNumber);
        EXPECT_EQ(b.tokens, a.tokens);
        EXPECT_EQ(b.analyses.size(), a.analyses.size());
        EXPECT_EQ(b.kind, a.kind);
        EXPECT_EQ(b.matchIndex, a.matchIndex);
        EXPECT_EQ(b.nextClauseIndex, a.nextClauseIndex);
        EXPECT_EQ(b.isAssignment, a.isAssignment);
        EXPECT_EQ(b.expression.valid, a.expression.valid);
        EXPECT_EQ(b.singleValue().valid, a.singleValue().valid);
        EXPECT_EQ(b.forClause().isNumeric, a.forClause().isNumeric);
    }
    EXPECT_EQ(loaded.instructions.size(), program->instructions.size());
    EXPECT_EQ(loaded.chunks.size(), program->chunks.size());
    EXPECT_EQ(loaded.ifGroups.size(), 1u);
    EXPECT_EQ(loaded.ifGroups[0].branches.size(), 3u);
    EXPECT_TRUE(loaded.ifGroups[0].branches[2].isElse);
    ASSERT_EQ(loaded.functions.size(), 1u);
    EXPECT_EQ(loaded.functions[0].sourcePath, "dir/small.ov");
    // Writing what was read gives the same bytes.
    EXPECT_EQ(engine.serializeBytecode(loaded), bytes);
}

TEST(BytecodeFile, OlderVersionsReadWithTheirDefaults) {
    BytecodeProgram v5 = engine.deserializeBytecode(oneLineFile(5).data, "v5");
    EXPECT_EQ(v5.version, 5);
    EXPECT_EQ(v5.sourcePath, "root/file.ov");
    ASSERT_EQ(v5.lines.size(), 2u);
    EXPECT_EQ(v5.lines[0].lineNumber, 0u);  // the line's index stands in for its number
    EXPECT_EQ(v5.lines[1].lineNumber, 1u);
    EXPECT_EQ(v5.functions[0].sourcePath, "froot/f.ov");

    BytecodeProgram v4 = engine.deserializeBytecode(oneLineFile(4).data, "v4");
    EXPECT_EQ(v4.sourceRoot, "root");
    EXPECT_EQ(v4.sourcePath, "");
    EXPECT_EQ(v4.functions[0].sourceRoot, "froot");
    EXPECT_EQ(v4.functions[0].sourcePath, "");
    EXPECT_EQ(v4.lines[1].kind, orvane::LineKind::Statement);

    BytecodeProgram v6 = engine.deserializeBytecode(oneLineFile(6).data, "v6");
    EXPECT_EQ(v6.lines[1].lineNumber, 41u);
    ASSERT_EQ(v6.instructions.size(), 2u);
    EXPECT_EQ(v6.instructions[1].a, 1u);

    // Whatever was read, the writer names version 6, and trailing bytes are ignored.
    Bytes padded = oneLineFile(4);
    padded.raw("trailing junk");
    std::vector<uint8_t> rewritten = engine.serializeBytecode(engine.deserializeBytecode(padded.data, "v4"));
    EXPECT_EQ(rewritten[4], 6);
    EXPECT_EQ(engine.deserializeBytecode(rewritten, "again").lines[1].lineNumber, 1u);
}

TEST(BytecodeFile, HeaderFailuresNameTheirCause) {
    EXPECT_EQ(readOutcome({}), "Invalid bytecode file (truncated): test.osbc");
    EXPECT_EQ(readOutcome({'O', 'S', 'B', 'C'}), "Invalid bytecode file (truncated): test.osbc");
    EXPECT_EQ(readOutcome({'O', 'S', 'B', 'X', 6, 0}), "Invalid bytecode file (bad magic): test.osbc");
    for (uint16_t version : {0, 3, 7, 0x0106}) {
        Bytes b;
        b.raw("OSBC").u16(version).str("").str("");
        EXPECT_EQ(readOutcome(b.data), "Unsupported bytecode version: " + std::to_string(version));
    }
}

TEST(BytecodeFile, EveryTruncationIsRefused) {
    std::vector<uint8_t> bytes = smallFile();
    ASSERT_EQ(readOutcome(bytes), "accepted");
    for (size_t size = 0; size < bytes.size(); ++size) {
        std::vector<uint8_t> cut(bytes.begin(), bytes.begin() + std::ptrdiff_t(size));
        EXPECT_EQ(readOutcome(cut), "Invalid bytecode file (truncated): test.osbc") << "cut at " << size;
    }
}

TEST(BytecodeFile, FlippedBytesAreReadOrRefusedCleanly) {
    std::vector<uint8_t> bytes = smallFile();
    size_t refused = 0;
    for (size_t at = 0; at < bytes.size(); ++at) {
        for (uint8_t mask : {0x01, 0x10, 0x80, 0xFF}) {
            std::vector<uint8_t> damaged = bytes;
            damaged[at] ^= mask;
            watchingAllocations = true;
            largestAllocation = 0;
            std::string outcome = readOutcome(damaged);  // anything but a runtime_error fails the test
            watchingAllocations = false;
            EXPECT_LT(largestAllocation.load(), size_t(1) << 20) << "byte " << at << " mask " << int(mask);
            if (outcome != "accepted") ++refused;
        }
    }
    EXPECT_GT(refused, 0u);
}

TEST(BytecodeFile, RandomDamageIsReadOrRefusedCleanly) {
    std::vector<uint8_t> bytes = smallFile();
    std::mt19937 random(7);
    for (int round = 0; round < 3000; ++round) {
        std::vector<uint8_t> damaged = bytes;
        int changes = 1 + int(random() % 6);
        for (int i = 0; i < changes; ++i) damaged[random() % damaged.size()] = uint8_t(random());
        if (random() % 4 == 0) damaged.resize(random() % damaged.size());
        readOutcome(damaged);  // anything but a runtime_error fails the test
    }
}

TEST(BytecodeFile, LengthFieldsCannotOutgrowTheFile) {
    auto hostile = [](const Bytes& b) {
        watchingAllocations = true;
        largestAllocation = 0;
        std::string outcome = readOutcome(b.data);
        watchingAllocations = false;
        EXPECT_EQ(outcome, "Invalid bytecode file (truncated): test.osbc");
        EXPECT_LT(largestAllocation.load(), size_t(4096));
    };
    // The watch sees the allocations of a good read.
    watchingAllocations = true;
    largestAllocation = 0;
    EXPECT_EQ(readOutcome(smallFile()), "accepted");
    watchingAllocations = false;
    EXPECT_GT(largestAllocation.load(), 0u);

    Bytes header;
    header.raw("OSBC").u16(6).str("").str("");
    hostile(Bytes(header).u32(0xFFFFFFF0));                         // line count
    hostile(Bytes{{'O', 'S', 'B', 'C', 6, 0, 0xF0, 0xFF, 0xFF, 0xFF}});  // root length
    hostile(Bytes(header).u32(1).u32(0x7FFFFFFF).raw(std::string(16, 'x')));  // line text length
    hostile(Bytes(header).u32(1).str("x").u32(0).u32(0xFFFFFFFF));  // token count
    Bytes empty = Bytes(header).u32(0);
    hostile(Bytes(empty).u32(0xFFFFFFFF));                          // instruction count
    hostile(Bytes(empty).u32(0).u32(0xFFFFFFFF));                   // chunk count
    hostile(Bytes(empty).u32(0).u32(0).u32(1).u32(0xFFFFFFFF));     // branch count
    hostile(Bytes(empty).u32(0).u32(0).u32(0).u32(0).u32(0).u32(0).u32(0).u32(0x10000000));  // functions
}

TEST(BytecodeFile, IndicesAreCheckedOnlyWhenTheyRun) {
    // An IfGroup whose index lies past the table loads, and fails when it runs.
    Bytes b;
    b.raw("OSBC").u16(6).str("").str("").u32(1).str("x = 1").u32(0).u32(3).str("x").str("=").str("1");
    b.u32(1).u8(2).u32(7).u32(0);
    b.u32(1).u32(0).u32(1).u8(0);
    b.u32(0).u32(0).u32(0).u32(0).u32(0).u32(0);
    BytecodeProgram program = engine.deserializeBytecode(b.data, "bad-index");
    try {
        engine.runBytecode(program);
        ADD_FAILURE() << "ran";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find("Bytecode if-group index out of range"), std::string::npos) << e.what();
    }
}

TEST(BytecodeFile, FilesOnDisk) {
    fs::path dir = fs::temp_directory_path() / ("ot-osbc-files-" + std::to_string(getpid()));
    fs::create_directories(dir);
    std::string file = (dir / "small.osbc").string();
    auto program = engine.compileToBytecode(kSmallSource);
    engine.saveBytecode(*program, file);
    EXPECT_EQ(engine.serializeBytecode(engine.loadBytecode(file)), engine.serializeBytecode(*program));
    // Saving replaces what was there.
    auto tiny = engine.compileToBytecode("x = 1");
    engine.saveBytecode(*tiny, file);
    EXPECT_EQ(engine.loadBytecode(file).lines.size(), 1u);

    std::ofstream(dir / "empty.osbc").close();
    try {
        engine.loadBytecode((dir / "empty.osbc").string());
        ADD_FAILURE() << "empty file read";
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(std::string(e.what()), "Invalid bytecode file (truncated): " + (dir / "empty.osbc").string());
    }
    std::string missing = (dir / "missing.osbc").string();
    try {
        engine.loadBytecode(missing);
        ADD_FAILURE() << "missing file read";
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(std::string(e.what()), "Failed to open bytecode file for reading: " + missing);
    }
    try {
        engine.loadBytecode(dir.string());
        ADD_FAILURE() << "a folder read";
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(std::string(e.what()), "Invalid bytecode file (truncated data): " + dir.string());
    }
    std::string unwritable = (dir / "no-such-dir" / "x.osbc").string();
    try {
        engine.saveBytecode(*tiny, unwritable);
        ADD_FAILURE() << "wrote into a missing folder";
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(std::string(e.what()), "Failed to open bytecode file for writing: " + unwritable);
    }
    fs::remove_all(dir);
}
