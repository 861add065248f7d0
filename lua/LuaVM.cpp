// The public face: runs of strings, files and bundles, the conversions between LuaValue and
// the internal Value, and the "OLBC" bundle, which holds a chunk name and the source text.
#include "lua/LuaVM.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "lua/Resolver.h"
#include "lua/Runtime.h"

namespace orvane::lua {

namespace {

uintptr_t frameAddress() { return reinterpret_cast<uintptr_t>(__builtin_frame_address(0)); }

// Marks the outermost run, from whose frame the native stack budget is measured.
struct RunScope {
    LuaVM::Impl& impl;
    explicit RunScope(LuaVM::Impl& vm) : impl(vm) {
        if (impl.runDepth++ == 0) {
            impl.stackBase = frameAddress();
            impl.callDepth = 0;
        }
    }
    ~RunScope() { --impl.runDepth; }
};

LuaResult failedResult(const std::string& error) {
    LuaResult result;
    result.success = false;
    result.error = error;
    return result;
}

}  // namespace

// ---- Impl: construction ----

LuaVM::Impl::Impl(LuaVM* vm) : owner(vm) {
    bindDefaults();
    stringSlot = resolveGlobalSlot("string");
}

LuaVM::Impl::~Impl() {
    environmentRegistry.clearAll();
    tableRegistry.clearAll();
    globals.clear();
    environmentRegistry.clearAll();
    tableRegistry.clearAll();
}

std::shared_ptr<LuaFunctionHandle> makeNativeHandle(const std::string& name, NativeFunction fn) {
    auto handle = std::make_shared<LuaFunctionHandle>();
    handle->kind = 1;
    handle->name = name;
    handle->native = std::move(fn);
    return handle;
}

// ---- Impl: parsing and global slots ----

ResolvedChunk LuaVM::Impl::parseScript(const std::string& source, const std::string& chunkName) {
    Resolver resolver(chunkName);
    ResolvedChunk chunk = resolver.resolve(parseSource(source, chunkName));
    bindGlobalSlots(chunk);
    return chunk;
}

void LuaVM::Impl::bindGlobalSlots(ResolvedChunk& chunk) {
    bindScopes.assign(1, false);
    bindGlobalSlots(chunk.statements);
    bindScopes.clear();
}

int32_t LuaVM::Impl::environmentDepth(int32_t depth) const {
    // The scopes that a lookup of this depth crosses are the innermost `depth` ones.
    int32_t crossedElided = 0;
    size_t n = bindScopes.size();
    for (int32_t d = 0; d < depth && size_t(d) < n; ++d)
        if (bindScopes[n - 1 - size_t(d)]) ++crossedElided;
    return depth - crossedElided;
}

void LuaVM::Impl::bindGlobalSlots(StmtList& statements) {
    for (auto& s : statements) bindGlobalSlots(*s);
}

void LuaVM::Impl::bindTarget(AssignTarget& target) {
    if (target.kind == 0) {
        if (target.depth < 0) {
            target.hasGlobalSlot = true;
            target.globalSlot = resolveGlobalSlot(target.name);
        } else {
            target.envDepth = environmentDepth(target.depth);
        }
        return;
    }
    bindGlobalSlots(target.object);
    bindGlobalSlots(target.index);
    target.indexPure = target.kind == 2 && !containsCall(target.index);
}

void LuaVM::Impl::bindGlobalSlots(Stmt& statement) {
    switch (statement.kind) {
    case Stmt::Kind::Expression: bindGlobalSlots(static_cast<ExpressionStmt&>(statement).expression); break;
    case Stmt::Kind::Assignment: {
        auto& s = static_cast<AssignmentStmt&>(statement);
        for (auto& t : s.targets)
            if (!s.isLocal) bindTarget(t);
        for (auto& v : s.values) bindGlobalSlots(v);
        break;
    }
    case Stmt::Kind::FunctionDeclaration: {
        auto& s = static_cast<FunctionDeclarationStmt&>(statement);
        if (!s.isLocal) bindTarget(s.target);
        bindGlobalSlots(*s.function);
        break;
    }
    case Stmt::Kind::If: {
        auto& s = static_cast<IfStmt&>(statement);
        for (auto& b : s.branches) {
            bindGlobalSlots(b.condition);
            b.elided = b.slotCount == 0 && b.noCapture;
            bindScopes.push_back(b.elided);
            bindGlobalSlots(b.block);
            bindScopes.pop_back();
        }
        if (!s.elseBlock.empty()) {
            s.elseElided = s.elseSlotCount == 0 && s.elseNoCapture;
            bindScopes.push_back(s.elseElided);
            bindGlobalSlots(s.elseBlock);
            bindScopes.pop_back();
        }
        break;
    }
    case Stmt::Kind::While: {
        auto& s = static_cast<WhileStmt&>(statement);
        bindGlobalSlots(s.condition);
        bindScopes.push_back(false);
        bindGlobalSlots(s.body);
        bindScopes.pop_back();
        break;
    }
    case Stmt::Kind::NumericFor: {
        auto& s = static_cast<NumericForStmt&>(statement);
        bindGlobalSlots(s.start);
        bindGlobalSlots(s.limit);
        bindGlobalSlots(s.step);
        bindScopes.push_back(false);
        bindGlobalSlots(s.body);
        bindScopes.pop_back();
        break;
    }
    case Stmt::Kind::GenericFor: {
        auto& s = static_cast<GenericForStmt&>(statement);
        for (auto& e : s.iterators) bindGlobalSlots(e);
        bindScopes.push_back(false);
        bindGlobalSlots(s.body);
        bindScopes.pop_back();
        break;
    }
    case Stmt::Kind::Return:
        for (auto& e : static_cast<ReturnStmt&>(statement).values) bindGlobalSlots(e);
        break;
    case Stmt::Kind::Break: break;
    }
    chooseExecutor(statement);
}

void LuaVM::Impl::bindGlobalSlots(const ExprPtr& expression) {
    if (!expression) return;
    switch (expression->kind) {
    case Expr::Kind::Literal: break;
    case Expr::Kind::Variable: {
        auto& v = static_cast<VariableExpr&>(*expression);
        if (v.depth < 0) {
            v.hasGlobalSlot = true;
            v.globalSlot = resolveGlobalSlot(v.name);
        } else {
            v.envDepth = environmentDepth(v.depth);
        }
        break;
    }
    case Expr::Kind::Unary: bindGlobalSlots(static_cast<UnaryExpr&>(*expression).operand); break;
    case Expr::Kind::Binary: {
        auto& b = static_cast<BinaryExpr&>(*expression);
        bindGlobalSlots(b.left);
        bindGlobalSlots(b.right);
        break;
    }
    case Expr::Kind::Table:
        for (auto& f : static_cast<TableExpr&>(*expression).fields) {
            bindGlobalSlots(f.key);
            bindGlobalSlots(f.value);
        }
        break;
    case Expr::Kind::Field: bindGlobalSlots(static_cast<FieldExpr&>(*expression).object); break;
    case Expr::Kind::Index: {
        auto& i = static_cast<IndexExpr&>(*expression);
        bindGlobalSlots(i.object);
        bindGlobalSlots(i.index);
        break;
    }
    case Expr::Kind::Call: {
        auto& c = static_cast<CallExpr&>(*expression);
        bindGlobalSlots(c.callee);
        bindGlobalSlots(c.object);
        for (auto& a : c.arguments) bindGlobalSlots(a);
        break;
    }
    case Expr::Kind::Function: bindGlobalSlots(static_cast<FunctionExpr&>(*expression)); break;
    }
    chooseEvaluator(*expression);
}

void LuaVM::Impl::bindGlobalSlots(FunctionExpr& function) {
    bindScopes.push_back(false);
    bindGlobalSlots(function.body);
    bindScopes.pop_back();
}

// ---- Impl: runs ----

MultiValue LuaVM::Impl::executeScript(const std::string& source, const std::string& chunkName) {
    ResolvedChunk chunk = parseScript(source, chunkName);
    auto env = newSharedEnvironment(chunk.slotCount);
    return runBody(chunk.statements, *env);
}

LuaResult LuaVM::Impl::runScriptString(const std::string& source, const std::string& chunkName) {
    RunScope scope(*this);
    exitCode = -1;
    try {
        try {
            MultiValue values = executeScript(source, chunkName);
            return makeSuccess(values);
        } catch (const ExitSignal& signal) {
            exitCode = signal.code;
            return makeSuccess(MultiValue(Value::integer(signal.code)));
        }
    } catch (const ProtectedRuntimeError& error) {
        return makeFailure(error, chunkName);
    } catch (const std::exception& error) {
        return makeFailure(error, chunkName);
    } catch (...) {
        return failedResult("unknown error");
    }
}

LuaResult LuaVM::Impl::makeSuccess(const MultiValue& values) {
    LuaResult result;
    if (values.size() == 1) {
        result.value = valueToPublic(values[0]);
    } else if (values.size() > 1) {
        result.value = valueToPublic(Value::table(sequenceToTable(values)));
    }
    result.success = true;
    if (exitCode >= 0) {
        result.exited = true;
        result.exitCode = exitCode;
    }
    return result;
}

LuaResult LuaVM::Impl::makeFailure(const ProtectedRuntimeError& error, const std::string& chunkName) {
    if (error.hasLine) return failedResult(chunkName + ":" + std::to_string(error.line) + ": " + error.message);
    return failedResult(error.message);
}

LuaResult LuaVM::Impl::makeFailure(const std::exception& error, const std::string& chunkName) {
    if (auto* runtime = dynamic_cast<const RuntimeError*>(&error); runtime && runtime->hasLine)
        return failedResult(chunkName + ":" + std::to_string(runtime->line) + ": " + runtime->what());
    return failedResult(error.what());
}

std::shared_ptr<Table> LuaVM::Impl::sequenceToTable(const MultiValue& values) {
    auto table = newTable();
    int64_t key = 1;
    for (const auto& v : values) tableSetInteger(table.get(), key++, v);
    return table;
}

// ---- Impl: conversions ----

LuaValue LuaVM::Impl::valueToPublic(const Value& value, int depth) {
    if (depth > kMaxBridgeDepth) throw std::runtime_error("value is nested too deeply to bridge out of OrvaneLua");
    switch (value.type()) {
    case ValueType::Nil: return LuaValue();
    case ValueType::Integer: return LuaValue(value.integerValue());
    case ValueType::Float: return LuaValue(value.floatValue());
    case ValueType::Boolean: return LuaValue(value.booleanValue());
    case ValueType::String: return LuaValue(value.stringValue());
    case ValueType::Function: return LuaValue(value.functionValue());
    case ValueType::UserData:
    case ValueType::Iterator: throw std::runtime_error("value cannot be bridged out of OrvaneLua");
    case ValueType::Table: break;
    }
    // Held by a shared pointer for the walk: converting an element runs no script code, but
    // the table must not die under it in any case.
    std::shared_ptr<Table> table = value.tableValue();
    uint64_t n = tableSequenceLength(table.get());
    bool isArray = table->hash.empty();
    for (size_t i = size_t(n); isArray && i < table->array.size(); ++i)
        if (!table->array[i].isNil()) isArray = false;
    if (isArray) {
        LuaValue::Array array;
        array.reserve(size_t(n));
        for (uint64_t k = 1; k <= n; ++k) {
            const Value* element = tableFindInteger(*table, int64_t(k));
            array.push_back(valueToPublic(element ? *element : Value(), depth + 1));
        }
        return LuaValue(std::move(array));
    }
    LuaValue::Map map;
    for (size_t i = 0; i < table->array.size(); ++i)
        if (!table->array[i].isNil()) map[std::to_string(i + 1)] = valueToPublic(table->array[i], depth + 1);
    for (const auto& [key, element] : table->hash) map[keyToString(key)] = valueToPublic(element, depth + 1);
    return LuaValue(std::move(map));
}

Value LuaVM::Impl::publicToValue(const LuaValue& value, int depth) {
    if (depth > kMaxBridgeDepth) throw std::runtime_error("value is nested too deeply to bridge into OrvaneLua");
    switch (value.type()) {
    case LuaValueType::Nil: return Value();
    case LuaValueType::Integer: return Value::integer(value.asInteger());
    case LuaValueType::Float: return Value::number(value.asFloat());
    case LuaValueType::Boolean: return Value::boolean(value.asBoolean());
    case LuaValueType::String: return Value::string(value.asString());
    case LuaValueType::Array: {
        auto table = newTable();
        const auto& array = value.asArray();
        for (size_t i = 0; i < array.size(); ++i)
            tableSetInteger(table.get(), int64_t(i + 1), publicToValue(array[i], depth + 1));
        return Value::table(std::move(table));
    }
    case LuaValueType::Map: {
        auto table = newTable();
        for (const auto& [key, element] : value.asMap()) {
            int64_t integer;
            TableKey k = parseStrictInteger(key, integer) ? TableKey::makeInteger(integer) : TableKey::makeString(key);
            tableSetByKey(table.get(), k, publicToValue(element, depth + 1));
        }
        return Value::table(std::move(table));
    }
    case LuaValueType::Function: return Value::function(value.asFunction());
    }
    return Value();
}

void LuaVM::Impl::bindFunction(const std::string& name, LuaVM::Function fn) {
    Impl* impl = this;
    NativeFunction body = [impl, name, fn = std::move(fn)](LuaVM& vm, ValueSpan args, uint32_t line) -> MultiValue {
        std::vector<LuaValue> arguments;
        arguments.reserve(args.size());
        for (const auto& a : args) arguments.push_back(impl->valueToPublic(a));
        LuaValue result;
        try {
            result = fn(vm, arguments);
        } catch (const RuntimeError&) {
            throw;
        } catch (const std::exception& e) {
            failRuntime(line, name + ": " + e.what());
        }
        return MultiValue(impl->publicToValue(result));
    };
    setGlobalValue(name, Value::function(makeNativeHandle(name, std::move(body))));
}

// ---- Bundles ----

namespace {

const char kMagic[4] = {'O', 'L', 'B', 'C'};
constexpr uint32_t kBundleVersion = 1;

void writeBytes(std::vector<uint8_t>& out, const void* data, size_t size) {
    if (size == 0) return;
    size_t at = out.size();
    out.resize(at + size);
    std::memcpy(out.data() + at, data, size);
}

void writeU32(std::vector<uint8_t>& out, uint32_t value) {
    for (int i = 0; i < 4; ++i) out.push_back(uint8_t(value >> (8 * i)));
}

void writeString(std::vector<uint8_t>& out, const std::string& text) {
    if (text.size() > UINT32_MAX) throw std::runtime_error("bytecode string is too large");
    writeU32(out, uint32_t(text.size()));
    writeBytes(out, text.data(), text.size());
}

uint32_t readPrimitive(const std::vector<uint8_t>& bytes, size_t& offset) {
    if (offset > bytes.size() || bytes.size() - offset < 4) throw std::runtime_error("bytecode is truncated");
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value |= uint32_t(bytes[offset + size_t(i)]) << (8 * i);
    offset += 4;
    return value;
}

std::string readString(const std::vector<uint8_t>& bytes, size_t& offset) {
    uint32_t size = readPrimitive(bytes, offset);
    if (size > bytes.size() - offset) throw std::runtime_error("bytecode string exceeds file size");
    std::string text(reinterpret_cast<const char*>(bytes.data() + offset), size);
    offset += size;
    return text;
}

}  // namespace

std::vector<uint8_t> makeBytecodeBundle(const std::string& chunkName, const std::string& source) {
    std::vector<uint8_t> out;
    out.reserve(16 + chunkName.size() + source.size());
    writeBytes(out, kMagic, 4);
    writeU32(out, kBundleVersion);
    writeString(out, chunkName);
    writeString(out, source);
    return out;
}

BundleContents unpackBytecodeBundle(const std::vector<uint8_t>& bytecode) {
    if (bytecode.size() < 8) throw std::runtime_error("bytecode file is too small");
    if (std::memcmp(bytecode.data(), kMagic, 4) != 0) throw std::runtime_error("invalid OrvaneLua bytecode header");
    size_t offset = 4;
    if (readPrimitive(bytecode, offset) != kBundleVersion)
        throw std::runtime_error("unsupported OrvaneLua bytecode version");
    BundleContents contents;
    contents.chunkName = readString(bytecode, offset);
    contents.source = readString(bytecode, offset);
    return contents;
}

std::vector<uint8_t> readFileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in) throw std::runtime_error("failed to open file: " + path);
    std::streamoff size = in.tellg();
    if (size < 0) throw std::runtime_error("failed to size file: " + path);
    in.seekg(0);
    std::vector<uint8_t> bytes(static_cast<size_t>(size));
    if (size > 0 && !in.read(reinterpret_cast<char*>(bytes.data()), size))
        throw std::runtime_error("failed to read file: " + path);
    return bytes;
}

void writeFileBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) throw std::runtime_error("failed to open file for writing: " + path);
    if (!bytes.empty() && !out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size())))
        throw std::runtime_error("failed to write file: " + path);
    out.flush();
    if (!out) throw std::runtime_error("failed to write file: " + path);
}

// ---- LuaVM ----

LuaVM::LuaVM() : impl_(std::make_unique<Impl>(this)) {}

LuaVM::~LuaVM() = default;

LuaVM::LuaVM(LuaVM&& other) noexcept : impl_(std::move(other.impl_)) {
    if (impl_) impl_->owner = this;
}

LuaVM& LuaVM::operator=(LuaVM&& other) noexcept {
    if (this != &other) {
        impl_ = std::move(other.impl_);
        if (impl_) impl_->owner = this;
    }
    return *this;
}

void LuaVM::bindFunction(const std::string& name, Function fn) {
    if (!impl_) throw std::runtime_error("OrvaneLua VM has been moved from");
    impl_->bindFunction(name, std::move(fn));
}

void LuaVM::setGlobal(const std::string& name, const LuaValue& value) {
    if (!impl_) throw std::runtime_error("OrvaneLua VM has been moved from");
    impl_->setGlobalValue(name, impl_->publicToValue(value));
}

bool LuaVM::getGlobal(const std::string& name, LuaValue& out) const {
    if (!impl_) return false;
    try {
        Value value = impl_->getGlobalValue(name);
        if (value.isNil()) return false;
        out = impl_->valueToPublic(value);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

LuaBytecode LuaVM::compileScript(const std::string& source, const std::string& chunkName) {
    if (!impl_) throw std::runtime_error("OrvaneLua VM has been moved from");
    impl_->parseScript(source, chunkName);
    return LuaBytecode{makeBytecodeBundle(chunkName, source)};
}

bool LuaVM::writeBytecodeFile(const std::string& source, const std::string& outputPath, const std::string& chunkName,
                              std::string* error) {
    try {
        LuaBytecode bytecode = compileScript(source, chunkName);
        writeFileBytes(outputPath, bytecode.bytes);
        return true;
    } catch (const std::exception& e) {
        if (error) *error = e.what();
        return false;
    }
}

LuaResult LuaVM::runScriptString(const std::string& source, const std::string& chunkName) {
    if (!impl_) return failedResult("OrvaneLua VM has been moved from");
    return impl_->runScriptString(source, chunkName);
}

LuaResult LuaVM::runScriptFile(const std::string& path) {
    std::string content;
    try {
        std::ifstream in(path, std::ios::binary);
        if (!in) return failedResult("unable to open script file: " + path);
        content.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    } catch (const std::exception& e) {
        return failedResult(e.what());
    }
    return runScriptString(content, path);
}

LuaResult LuaVM::runBytecode(const LuaBytecode& bytecode) {
    BundleContents contents;
    try {
        contents = unpackBytecodeBundle(bytecode.bytes);
    } catch (const std::exception& e) {
        return failedResult(e.what());
    }
    return runScriptString(contents.source, contents.chunkName);
}

LuaResult LuaVM::runBytecodeFile(const std::string& path) {
    LuaBytecode bytecode;
    try {
        bytecode.bytes = readFileBytes(path);
    } catch (const std::exception& e) {
        return failedResult(e.what());
    }
    return runBytecode(bytecode);
}

LuaResult LuaVM::runScriptFromBytecodeFile(const std::string& path) { return runBytecodeFile(path); }

std::string LuaVM::valueToString(const LuaValue& value) const { return value.toString(); }

void bindCppFunctionToLuaVM(LuaVM& vm, const std::string& name, LuaVM::Function fn) {
    vm.bindFunction(name, std::move(fn));
}
LuaResult runLuaScriptString(LuaVM& vm, const std::string& source, const std::string& chunkName) {
    return vm.runScriptString(source, chunkName);
}
LuaResult runLuaScriptFile(LuaVM& vm, const std::string& path) { return vm.runScriptFile(path); }
LuaResult runLuaBytecode(LuaVM& vm, const LuaBytecode& bytecode) { return vm.runBytecode(bytecode); }
LuaResult runLuaScriptFromBytecodeFile(LuaVM& vm, const std::string& path) {
    return vm.runScriptFromBytecodeFile(path);
}
LuaResult runLuaBytecodeFile(LuaVM& vm, const std::string& path) { return vm.runBytecodeFile(path); }

}  // namespace orvane::lua
