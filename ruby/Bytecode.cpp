// The "ORBC" file: little-endian integers, strings as a 32-bit count and bytes, then constants
// and functions of 13-byte instructions. The reader trusts no count: each is held against the
// bytes that are left before anything is reserved.
#include <cstring>
#include <stdexcept>

#include "ruby/Program.h"
#include "ruby/RubyVM.h"

namespace orvane::ruby {
namespace {

constexpr uint32_t kVersion = 1;
constexpr size_t kInstructionBytes = 13;

void writeBytes(std::vector<uint8_t>& out, const void* data, size_t size) {
    if (size == 0) return;
    const size_t at = out.size();
    out.resize(at + size);
    std::memcpy(out.data() + at, data, size);
}
void writeU8(std::vector<uint8_t>& out, uint8_t value) { out.push_back(value); }
template <typename T>
void writeLittle(std::vector<uint8_t>& out, T value) {
    uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof(T));
    for (size_t i = 0; i < sizeof(T); ++i) out.push_back(static_cast<uint8_t>(bits >> (8 * i)));
}
void writeU32(std::vector<uint8_t>& out, uint32_t value) { writeLittle(out, value); }
void writeI32(std::vector<uint8_t>& out, int32_t value) { writeLittle(out, value); }
void writeI64(std::vector<uint8_t>& out, int64_t value) { writeLittle(out, value); }
void writeDouble(std::vector<uint8_t>& out, double value) { writeLittle(out, value); }
void writeString(std::vector<uint8_t>& out, const std::string& text) {
    if (text.size() > UINT32_MAX) throw std::runtime_error("bytecode string is too long");
    writeU32(out, static_cast<uint32_t>(text.size()));
    writeBytes(out, text.data(), text.size());
}

class Reader {
public:
    explicit Reader(const std::vector<uint8_t>& bytes) : bytes(bytes) {}

    template <typename T>
    T readPrimitive() {
        if (left() < sizeof(T)) throw std::runtime_error("bytecode is truncated");
        uint64_t bits = 0;
        for (size_t i = 0; i < sizeof(T); ++i) bits |= uint64_t(bytes[pos + i]) << (8 * i);
        pos += sizeof(T);
        T value;
        std::memcpy(&value, &bits, sizeof(T));
        return value;
    }

    std::string readString() {
        uint32_t size = readPrimitive<uint32_t>();
        if (size > left()) throw std::runtime_error("bytecode string exceeds file size");
        std::string text(reinterpret_cast<const char*>(bytes.data() + pos), size);
        pos += size;
        return text;
    }

    // A count of items of at least `itemBytes` each that can't fit in what is left is truncation.
    uint32_t readCount(size_t itemBytes) {
        uint32_t count = readPrimitive<uint32_t>();
        if (uint64_t(count) * itemBytes > left()) throw std::runtime_error("bytecode is truncated");
        return count;
    }

    size_t left() const { return bytes.size() - pos; }
    void skip(size_t n) { pos += n; }

private:
    const std::vector<uint8_t>& bytes;
    size_t pos = 0;
};

}  // namespace

RubyBytecode serializeProgram(const Program& program) {
    RubyBytecode result;
    auto& out = result.bytes;
    out = {'O', 'R', 'B', 'C'};
    writeU32(out, kVersion);
    writeString(out, program.chunkName);
    writeU32(out, static_cast<uint32_t>(program.constants.size()));
    for (const RubyValue& constant : program.constants) {
        switch (constant.type()) {
        case RubyValueType::Nil: writeU8(out, 0); break;
        case RubyValueType::Integer:
            writeU8(out, 1);
            writeI64(out, constant.asInteger());
            break;
        case RubyValueType::Float:
            writeU8(out, 2);
            writeDouble(out, constant.asFloat());
            break;
        case RubyValueType::Boolean:
            writeU8(out, 3);
            writeU8(out, constant.asBoolean() ? 1 : 0);
            break;
        case RubyValueType::String:
            writeU8(out, 4);
            writeString(out, constant.asString());
            break;
        default: throw std::runtime_error("bytecode serializer only supports scalar constants");
        }
    }
    writeU32(out, static_cast<uint32_t>(program.functions.size()));
    for (const CompiledFunction& function : program.functions) {
        writeString(out, function.name);
        writeU32(out, static_cast<uint32_t>(function.parameters.size()));
        for (const std::string& parameter : function.parameters) writeString(out, parameter);
        writeU32(out, static_cast<uint32_t>(function.instructions.size()));
        for (const Instruction& ins : function.instructions) {
            writeU8(out, static_cast<uint8_t>(ins.opcode));
            writeI32(out, ins.a);
            writeI32(out, ins.b);
            writeU32(out, ins.line);
        }
    }
    return result;
}

Program deserializeProgram(const RubyBytecode& bytecode) {
    const auto& bytes = bytecode.bytes;
    if (bytes.size() < 8) throw std::runtime_error("bytecode file is too small");
    if (std::memcmp(bytes.data(), "ORBC", 4) != 0) throw std::runtime_error("invalid bytecode header");
    Reader reader(bytes);
    reader.skip(4);
    if (reader.readPrimitive<uint32_t>() != kVersion) throw std::runtime_error("unsupported bytecode version");

    Program program;
    program.chunkName = reader.readString();
    uint32_t constantCount = reader.readCount(1);
    program.constants.reserve(constantCount);
    for (uint32_t i = 0; i < constantCount; ++i) {
        uint8_t tag = reader.readPrimitive<uint8_t>();
        switch (tag) {
        case 0: program.constants.emplace_back(); break;
        case 1: program.constants.emplace_back(reader.readPrimitive<int64_t>()); break;
        case 2: program.constants.emplace_back(reader.readPrimitive<double>()); break;
        case 3: program.constants.emplace_back(reader.readPrimitive<uint8_t>() != 0); break;
        case 4: program.constants.emplace_back(reader.readString()); break;
        default: throw std::runtime_error("bytecode constant type is not supported");
        }
    }

    // A function is at least a name count, a parameter count and an instruction count.
    uint32_t functionCount = reader.readCount(12);
    if (functionCount == 0) throw std::runtime_error("bytecode contains no entry function");
    // Grown one function at a time, so that memory follows the bytes actually read.
    for (uint32_t f = 0; f < functionCount; ++f) {
        CompiledFunction& function = program.functions.emplace_back();
        function.name = reader.readString();
        uint32_t parameterCount = reader.readCount(4);
        function.parameters.reserve(parameterCount);
        for (uint32_t i = 0; i < parameterCount; ++i) function.parameters.push_back(reader.readString());
        uint32_t instructionCount = reader.readCount(kInstructionBytes);
        function.instructions.resize(instructionCount);
        for (Instruction& ins : function.instructions) {
            ins.opcode = static_cast<OpCode>(reader.readPrimitive<uint8_t>());
            ins.a = reader.readPrimitive<int32_t>();
            ins.b = reader.readPrimitive<int32_t>();
            ins.line = reader.readPrimitive<uint32_t>();
        }
    }
    finalizeProgramMetadata(program);
    return program;
}

RubyBytecode rewriteRubyBytecode(const RubyBytecode& bytecode) { return serializeProgram(deserializeProgram(bytecode)); }

std::vector<RubyFunctionInfo> describeRubyBytecode(const RubyBytecode& bytecode) {
    Program program = deserializeProgram(bytecode);
    std::vector<RubyFunctionInfo> result;
    for (const CompiledFunction& function : program.functions) {
        RubyFunctionInfo info;
        info.name = function.name;
        info.parameters = function.parameters;
        info.instructionCount = function.instructions.size();
        info.localNames = function.localNames;
        info.verified = function.verified;
        info.maxStack = function.maxStack;
        info.fastKind = function.fastKind;
        info.fastNodeCount = function.fastNodes.size();
        info.fastErrorMessage = function.fastErrorMessage;
        result.push_back(std::move(info));
    }
    return result;
}

}  // namespace orvane::ruby
