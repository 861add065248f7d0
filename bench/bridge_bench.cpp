// Crossing into the dialects: 100,000 calls from OrvaneScript into each VM, each taking a small
// table in (setVar) and a small table out (the value of runScript), as calls per second. Then
// where a call's time goes, each part timed on its own over as many rounds: the host's
// conversions of the two tables, the VM's own crossing of its boundary (its globals), the run of
// the call's script (parsed or compiled anew each time, then executed), and what remains: the
// host interpreter and the module calls.
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>

#include "host/Binding.h"
#include "host/BridgeConversions.h"
#include "host/HostModules.h"
#include "host/ProcessObjects.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace orvane;

constexpr int kCalls = 100000;

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

// Seconds per round of `round`, over kCalls rounds.
double perCall(const std::function<void()>& round) {
    const auto start = Clock::now();
    for (int i = 0; i < kCalls; ++i) round();
    return secondsSince(start) / kCalls;
}

// One dialect: its module's name, the script that defines `step`, and its conversions.
template <class VM, class Value>
struct Dialect {
    const char* module;
    VM& vm;
    const char* definition;
    Value (*toValue)(const Variable&, const std::string&, int);
    Variable (*toVariable)(const Value&, const std::string&, int);
};

void printShare(double part, double total) { std::printf(" %7.2f (%4.1f%%)", part * 1e6, 100.0 * part / total); }

template <class VM, class Value>
void measure(const Dialect<VM, Value>& dialect) {
    const std::string module = dialect.module;
    const auto defined = dialect.vm.runScriptString(dialect.definition);
    if (!defined.success) std::printf("%s: %s\n", dialect.module, defined.error.c_str());

    const auto start = Clock::now();
    engine.runScript("t = {x: 3, y: 4, name: 'ada'}\nfor i = 1, " + std::to_string(kCalls) + "\n  " + module +
                     "['setVar']('arg', t)\n  r = " + module + "['runScript']('return step(arg)')\nend\n");
    const double total = secondsSince(start) / kCalls;
    const Variable argument = engine.pullVariable("t");
    const Variable result = engine.pullVariable("r");
    const Value resultValue = dialect.toValue(result, "bench", 0);

    const double conversion = perCall([&] {
        dialect.toValue(argument, "bench", 0);
        dialect.toVariable(resultValue, "bench", 0);
    });
    const Value argumentValue = dialect.toValue(argument, "bench", 0);
    const double boundary = perCall([&] {
        Value out;
        dialect.vm.setGlobal("arg", argumentValue);
        dialect.vm.getGlobal("arg", out);
    });
    const double run = perCall([&] { dialect.vm.runScriptString("step(arg)"); });

    std::printf("%-8s %10.0f %9.2f", dialect.module, 1.0 / total, total * 1e6);
    printShare(conversion, total);
    printShare(boundary, total);
    printShare(run, total);
    printShare(total - conversion - boundary - run, total);
    // The last call's answer, so that a broken crossing shows.
    const Variable* x = getFieldValuePtr(result, "x");
    std::printf("   x = %s\n", x ? x->toString().c_str() : "missing");
}

}  // namespace

int main() {
    registerFunctions();
    std::printf("%d calls from OrvaneScript into each dialect, a table of three fields in and out;\n"
                "the parts in microseconds a call and their share of it\n",
                kCalls);
    std::printf("%-8s %10s %9s %16s %16s %16s %16s\n", "dialect", "calls/s", "us/call", "host conversion",
                "VM boundary", "script run", "host script");
    measure(Dialect<lua::LuaVM, lua::LuaValue>{
        "Lua", luaVM, "function step(p) return {x = p.x + 1, y = p.y * 2, name = p.name} end",
        variableToLuaValue, luaValueToVariable});
    measure(Dialect<ruby::RubyVM, ruby::RubyValue>{
        "Ruby", rubyVM,
        "def step(p)\n  m = map_new()\n  table_set(m, \"x\", p[\"x\"] + 1)\n  table_set(m, \"y\", p[\"y\"] * 2)\n"
        "  table_set(m, \"name\", p[\"name\"])\n  m\nend\n",
        variableToRubyValue, rubyValueToVariable});
    return 0;
}
