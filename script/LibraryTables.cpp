// The library tables string, table, math, utf8, io, os and package.
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
    makeLibraryTable("string", {});
    makeLibraryTable("table", {});
    makeLibraryTable("math", {{"random", member("math.random", &S::randomFunction)}, {"pi", Variable(3.1415927f)}});
    makeLibraryTable("utf8", {});
    makeLibraryTable("io", {});
    makeLibraryTable("os", {});
    makeLibraryTable("package", {{"path", Variable("")}, {"cpath", Variable("")}});
}

Variable OrvaneScript::dispatchLibraryBuiltinFast(uint8_t id, const Variable*, size_t) {
    throw std::runtime_error("Unknown built-in function id " + std::to_string(id));
}

}  // namespace orvane
