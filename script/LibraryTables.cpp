// The library tables string, table, math, utf8, io, os and package, and the fast dispatch of
// their members that have a built-in id.
#include <stdexcept>

#include "script/OrvaneScript.h"

namespace orvane {

void OrvaneScript::installLibraryMembers() {
    using S = OrvaneScript;
    auto member = [this](const char* qualified, Variable (S::*function)(const Variable*, size_t)) {
        return makeNativeCallable(
            [this, function](const VariableArray& args) { return (this->*function)(args.data(), args.size()); },
            qualified);
    };
    // The global gsub is the string member under its own name, with the member's fast id.
    NativeFunction gsub = [this](const VariableArray& args) { return gsubFunction(args.data(), args.size()); };
    nativeFunctions["gsub"] = gsub;
    pushVariable("gsub", makeNativeCallable(gsub, "gsub", kBuiltinStringGsub));

    makeLibraryTable("string", {{"gsub", member("string.gsub", &S::gsubFunction)},
                                {"len", member("string.len", &S::stringLenFunction)},
                                {"upper", member("string.upper", &S::upperFunction)},
                                {"lower", member("string.lower", &S::lowerFunction)},
                                {"sub", member("string.sub", &S::subFunction)},
                                {"find", member("string.find", &S::findFunctionImpl)},
                                {"match", member("string.match", &S::matchFunctionImpl)},
                                {"gmatch", member("string.gmatch", &S::gmatchFunctionImpl)},
                                {"byte", member("string.byte", &S::byteFunctionImpl)},
                                {"char", member("string.char", &S::charFunction)},
                                {"format", member("string.format", &S::formatFunctionImpl)},
                                {"rep", member("string.rep", &S::repFunction)}});
    makeLibraryTable("table", {{"insert", member("table.insert", &S::insertFunctionImpl)},
                               {"remove", member("table.remove", &S::removeFunctionImpl)},
                               {"concat", member("table.concat", &S::concatFunctionImpl)},
                               {"sort", member("table.sort", &S::sortFunctionImpl)}});
    Variable randomSeed = member("math.randomSeed", &S::randomSeedFunction);
    makeLibraryTable("math", {{"floor", member("math.floor", &S::floorFunction)},
                              {"ceil", member("math.ceil", &S::ceilFunction)},
                              {"abs", member("math.abs", &S::absFunction)},
                              {"min", member("math.min", &S::minFunction)},
                              {"max", member("math.max", &S::maxFunction)},
                              {"sin", member("math.sin", &S::sinFunction)},
                              {"cos", member("math.cos", &S::cosFunction)},
                              {"rad", member("math.rad", &S::radFunction)},
                              {"log", member("math.log", &S::logFunction)},
                              {"sqrt", member("math.sqrt", &S::sqrtFunction)},
                              {"random", member("math.random", &S::randomFunction)},
                              {"randomSeed", randomSeed},
                              {"randomseed", randomSeed},
                              {"pi", Variable(3.1415927f)}});
    makeLibraryTable("utf8", {{"len", member("utf8.len", &S::utf8LenFunction)},
                              {"offset", member("utf8.offset", &S::utf8OffsetFunction)}});
    makeLibraryTable("io", {{"open", member("io.open", &S::openFileFunction)},
                            {"popen", member("io.popen", &S::popenFunction)}});
    makeLibraryTable("os", {{"clock", member("os.clock", &S::clockFunction)}, {"time", member("os.time", &S::timeFunction)}});
    makeLibraryTable("package", {{"path", Variable("")}, {"cpath", Variable("")}});
}

Variable OrvaneScript::dispatchLibraryBuiltinFast(uint8_t id, const Variable* args, size_t count) {
    switch (id) {
    case kBuiltinStringLen: return stringLenFunction(args, count);
    case kBuiltinStringUpper: return upperFunction(args, count);
    case kBuiltinStringSub: return subFunction(args, count);
    case kBuiltinStringFind: return findFunctionImpl(args, count);
    case kBuiltinStringMatch: return matchFunctionImpl(args, count);
    case kBuiltinStringGmatch: return gmatchFunctionImpl(args, count);
    case kBuiltinStringByte: return byteFunctionImpl(args, count);
    case kBuiltinStringFormat: return formatFunctionImpl(args, count);
    case kBuiltinStringGsub: return gsubFunction(args, count);
    case kBuiltinTableInsert: return insertFunctionImpl(args, count);
    case kBuiltinTableRemove: return removeFunctionImpl(args, count);
    case kBuiltinTableConcat: return concatFunctionImpl(args, count);
    case kBuiltinTableSort: return sortFunctionImpl(args, count);
    case kBuiltinMathFloor: return floorFunction(args, count);
    case kBuiltinMathCeil: return ceilFunction(args, count);
    case kBuiltinMathAbs: return absFunction(args, count);
    case kBuiltinMathMin: return minFunction(args, count);
    case kBuiltinMathMax: return maxFunction(args, count);
    case kBuiltinMathSin: return sinFunction(args, count);
    case kBuiltinMathCos: return cosFunction(args, count);
    case kBuiltinMathRad: return radFunction(args, count);
    case kBuiltinMathLog: return logFunction(args, count);
    case kBuiltinMathSqrt: return sqrtFunction(args, count);
    case kBuiltinUtf8Len: return utf8LenFunction(args, count);
    default: throw std::runtime_error("Unknown built-in function id " + std::to_string(id));
    }
}

}  // namespace orvane
