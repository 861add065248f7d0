// Counts heap allocations of hot script lines with a replaced global operator new. Each program
// runs at two loop sizes; the difference divided by the extra iterations is what one iteration
// allocates, which must be 0 for the lines measured here.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

#include "script/OrvaneScript.h"

static std::atomic<long> allocations{0};

void* operator new(std::size_t size) {
    ++allocations;
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

long allocationsFor(const std::string& program, int iterations) {
    orvane::OrvaneScript script;
    std::string text = "n = " + std::to_string(iterations) + "\n" + program;
    long before = allocations.load();
    script.runScript(text);
    return allocations.load() - before;
}

struct Case {
    const char* name;
    const char* program;
};

const Case kCases[] = {
    {"integer expression over locals",
     "function run()\n local a = 3\n local b = 4\n local s = 0\n for i = 1, n\n  s = (s + a * i + b) % 1000\n end\n return s\nend\nrun()\n"},
    {"numeric for with integer bounds", "s = 0\nfor i = 1, n\n s += i % 7\nend\n"},
    {"float arithmetic", "x = 0.5\nfor i = 1, n\n x = x * 0.999 + 0.25\nend\n"},
    {"builtin call with 3 arguments", "s = 0\nfor i = 1, n\n s = math['max'](i, 3, 2) + s % 10\nend\n"},
    {"condition and branch", "c = 0\nfor i = 1, n\n if i % 3 == 0 and i > 5\n  c += 1\n end\nend\n"},
    {"call of a one-line function", "function add3(a, b, c)\n return a + b + c\nend\ns = 0\nfor i = 1, n\n s = add3(i, 1, 2) % 100\nend\n"},
    {"call of a function with locals",
     "function step(a, b)\n local t = a * 3\n local u = t + b\n return u % 100\nend\ns = 0\nfor i = 1, n\n s = step(i, s)\nend\n"},
    {"method-style call",
     "o = {x: 0}\nfunction o['add'](self, v)\n local x = self['x']\n self['x'] = (x + v) % 100\nend\n"
     "for i = 1, n\n o['add'](o, i)\nend\n"},
};

}  // namespace

int main() {
    const int small = 1000, large = 11000;
    int failures = 0;
    std::printf("%-34s %14s\n", "hot line", "allocs/iter");
    for (const Case& c : kCases) {
        long a = allocationsFor(c.program, small);
        long b = allocationsFor(c.program, large);
        double perIteration = double(b - a) / double(large - small);
        std::printf("%-34s %14.3f\n", c.name, perIteration);
        if (perIteration > 0.0) ++failures;
    }
    return failures == 0 ? 0 : 1;
}
