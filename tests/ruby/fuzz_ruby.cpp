// libFuzzer target for OrvaneRuby. The input is taken both ways: as source text through the
// compiler, and as "ORBC" bytes through the reader. Whatever compiles or reads then runs, with a
// step budget and small size limits so that every input ends quickly. Source that never names
// `error` has no guarded fast form and so none of the fast form's named differences: it runs
// again on the checked road, and both must agree. Whatever compiles must also pass the reader's
// proof, so that compiled code never takes the checked road.
#include <cstdint>
#include <cstdlib>
#include <cstdio>
#include <string>

#include "ruby/RubyVM.h"

using namespace orvane::ruby;

namespace {

RubyVM makeVm(RubyExecutionMode mode) {
    RubyVM vm;
    RubyLimits limits;
    limits.maxSteps = 3000;
    limits.maxCallDepth = 200;
    limits.maxStringBytes = 1 << 14;
    limits.maxArrayLength = 1 << 11;
    vm.setLimits(limits);
    vm.setExecutionMode(mode);
    // Quiet, and the same on every run.
    auto quiet = [](RubyVM&, const std::vector<RubyValue>&) { return RubyValue(); };
    vm.bindFunction("puts", quiet);
    vm.bindFunction("print", quiet);
    vm.bindFunction("time_ms", [](RubyVM&, const std::vector<RubyValue>&) { return RubyValue(1000); });
    return vm;
}

std::string outcome(const RubyResult& result) {
    if (!result.success) return "error: " + result.error;
    try {
        return result.value.toString();
    } catch (const std::exception& e) {
        return std::string("unprintable: ") + e.what();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);

    RubyVM fast = makeVm(RubyExecutionMode::Fast);
    RubyBytecode compiled;
    bool compiles = true;
    try {
        compiled = fast.compileScript(text, "fuzz");
    } catch (const std::exception&) {
        compiles = false;
    }
    if (compiles) {
        // The proof of the reader must hold for everything the compiler makes.
        for (const RubyFunctionInfo& function : describeRubyBytecode(compiled)) {
            if (!function.verified) {
                std::fprintf(stderr, "compiled function %s was not verified\n", function.name.c_str());
                std::abort();
            }
        }
        std::string a = outcome(fast.runBytecode(compiled));
        if (text.find("error") == std::string::npos) {
            RubyVM checked = makeVm(RubyExecutionMode::Checked);
            std::string b = outcome(checked.runBytecode(compiled));
            if (a != b) {
                std::fprintf(stderr, "fast and checked roads differ:\n  %s\n  %s\n", a.c_str(), b.c_str());
                std::abort();
            }
        }
    }

    RubyBytecode raw;
    raw.bytes.assign(data, data + size);
    RubyVM fromBytes = makeVm(RubyExecutionMode::Fast);
    (void)fromBytes.runBytecode(raw);
    RubyVM fromBytesChecked = makeVm(RubyExecutionMode::Checked);
    (void)fromBytesChecked.runBytecode(raw);
    return 0;
}
