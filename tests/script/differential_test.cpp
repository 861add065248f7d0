// Generated programs run on the compiled route and on the reference route (parsed lines walked by
// executeParsedBlock, every expression on the token evaluator) and must leave the same record and
// raise the same error. The programs mix integers near the 32-bit limits, floats near 2^24,
// strings, tables and arrays, calls of functions with locals, loops with break, pcall, and errors
// raised inside calls.
//
// The compiled route may differ from the reference route in these rules only, and the generator
// keeps clear of each:
// - a compiled condition, and a compiled `and`, `or` or `not`, takes the number 0 as false:
//   conditions and the operands of `and`, `or` and `not` are comparisons or bools;
// - a compiled `^` gives a float where the reference gives an integer: no program uses `^`;
// - `a, b = select(...)` raises one text of its own for both wrong calls: no program uses select.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "script/OrvaneScript.h"

using namespace orvane;

namespace {

constexpr int kPrograms = 240;

struct Generator {
    explicit Generator(unsigned seed) : rng(seed) {}
    std::mt19937 rng;

    int pick(int n) { return int(rng() % unsigned(n)); }
    bool chance(int percent) { return pick(100) < percent; }
    template <size_t N>
    const char* oneOf(const char* const (&items)[N]) {
        return items[pick(int(N))];
    }

    std::string number() {
        static const char* const numbers[] = {
            "0", "1", "2", "3", "7", "-5", "100", "46341", "65536", "2147483647", "2147483600", "-2147483647",
            "16777215", "16777217", "0.5", "1.25", "-2.75", "3.0", "16777216.0", "16777215.5", "0.1", "1e9"};
        return oneOf(numbers);
    }

    // A number-valued expression over the names given; may raise (division by zero, nil operands,
    // a refusing helper) on both routes alike.
    std::string expression(const std::vector<std::string>& names, int depth, bool calls) {
        if (depth <= 0 || chance(30)) return chance(45) && !names.empty() ? names[size_t(pick(int(names.size())))] : number();
        switch (pick(calls ? 9 : 6)) {
        case 0: case 1: case 2: case 3: {
            static const char* const ops[] = {"+", "-", "*", "%", "\\", "/", "+", "-", "*"};
            return "(" + expression(names, depth - 1, calls) + " " + oneOf(ops) + " " +
                   expression(names, depth - 1, calls) + ")";
        }
        case 4: {
            static const char* const reads[] = {"t['a']", "t['b']", "arr[1]", "arr[2]", "arr[3]", "len(s)", "#arr"};
            return oneOf(reads);
        }
        case 5: {
            static const char* const math[] = {"math['floor']", "math['abs']", "math['ceil']"};
            if (chance(50)) return std::string(oneOf(math)) + "(" + expression(names, depth - 1, calls) + ")";
            return std::string(chance(50) ? "math['min']" : "math['max']") + "(" + expression(names, depth - 1, calls) +
                   ", " + expression(names, depth - 1, calls) + ")";
        }
        case 6: return "h1(" + expression(names, depth - 1, false) + ", " + expression(names, depth - 1, false) + ")";
        case 7: return "h2(" + expression(names, depth - 1, false) + ")";
        default: return "h3(" + expression(names, depth - 1, false) + ", " + expression(names, depth - 1, false) + ")";
        }
    }

    std::string condition(const std::vector<std::string>& names, int depth) {
        static const char* const comparisons[] = {"<", ">", "<=", ">=", "==", "!="};
        if (depth > 0 && chance(25)) {
            switch (pick(3)) {
            case 0: return "(" + condition(names, depth - 1) + " and " + condition(names, depth - 1) + ")";
            case 1: return "(" + condition(names, depth - 1) + " or " + condition(names, depth - 1) + ")";
            default: return "not (" + condition(names, depth - 1) + ")";
            }
        }
        return "(" + expression(names, 2, false) + " " + oneOf(comparisons) + " " + expression(names, 2, false) + ")";
    }

    // Statements at one indentation; `names` holds what they may read and write.
    void block(std::string& text, std::vector<std::string> names, int depth, int count, bool inLoop,
               const std::string& indent) {
        for (int i = 0; i < count; ++i) {
            const std::string& name = names[size_t(pick(int(names.size())))];
            switch (depth > 0 ? pick(12) : pick(6)) {
            case 0: text += indent + name + " = " + expression(names, 3, true) + "\n"; break;
            case 1: {
                static const char* const compound[] = {"+=", "-=", "*="};
                text += indent + name + " " + oneOf(compound) + " " + expression(names, 2, true) + "\n";
                break;
            }
            case 2: text += indent + "out = out + ' ' + " + expression(names, 3, true) + "\n"; break;
            case 3: {
                static const char* const targets[] = {"t['a']", "t['b']", "arr[1]", "arr[2]", "arr[4]"};
                text += indent + oneOf(targets) + (chance(50) ? " = " : " += ") + expression(names, 2, false) + "\n";
                break;
            }
            case 4:
                text += indent + "s = s + " + (chance(50) ? "'x'" : expression(names, 1, false)) + "\n";
                text += indent + "s = string['sub'](s, 1, 12)\n";
                break;
            case 5: {
                static const char* const helpers[] = {"h1", "h2", "h3"};
                text += indent + "ok, r = pcall(" + oneOf(helpers) + ", " + expression(names, 2, false) + ", " +
                        expression(names, 2, false) + ")\n";
                text += indent + "out = out + ' ' + toString(ok) + '/' + toString(r)\n";
                break;
            }
            case 6: {
                std::string local = "v" + std::to_string(names.size());
                text += indent + "local " + local + " = " + expression(names, 2, true) + "\n";
                names.push_back(local);
                break;
            }
            case 7: case 8: {
                text += indent + "if " + condition(names, 1) + "\n";
                block(text, names, depth - 1, 1 + pick(3), inLoop, indent + "  ");
                if (chance(40)) {
                    text += indent + "elseif " + condition(names, 1) + "\n";
                    block(text, names, depth - 1, 1 + pick(2), inLoop, indent + "  ");
                }
                if (chance(50)) {
                    text += indent + "else\n";
                    block(text, names, depth - 1, 1 + pick(2), inLoop, indent + "  ");
                }
                text += indent + "end\n";
                break;
            }
            case 9: {
                std::string counter = "i" + std::to_string(depth);
                text += indent + "for " + counter + " = " + std::to_string(pick(3)) + ", " + std::to_string(1 + pick(6)) +
                        "\n";
                auto inner = names;
                inner.push_back(counter);
                block(text, inner, depth - 1, 1 + pick(3), true, indent + "  ");
                text += indent + "  if " + condition(inner, 0) + "\n" + indent + "    break\n" + indent + "  end\n";
                text += indent + "end\n";
                break;
            }
            case 10: {
                std::string counter = "w" + std::to_string(depth);
                text += indent + counter + " = 0\n";
                text += indent + "while " + counter + " < " + std::to_string(1 + pick(5)) + "\n";
                text += indent + "  " + counter + " += 1\n";
                block(text, names, depth - 1, 1 + pick(3), true, indent + "  ");
                text += indent + "end\n";
                break;
            }
            default:
                if (inLoop && chance(30)) text += indent + "if " + condition(names, 0) + "\n" + indent + "  break\n" + indent + "end\n";
                else text += indent + "out = out + ' ' + toString(" + condition(names, 1) + ")\n";
                break;
            }
        }
    }

    std::string program() {
        std::string text = "out = ''\ns = 'ab'\nt = {a: " + number() + ", b: " + number() + "}\narr = [" + number() +
                           ", " + number() + ", " + number() + "]\ng1 = " + number() + "\ng2 = " + number() + "\n";
        text += "function h1(a, b)\n  local p = " + expression({"a", "b"}, 2, false) + "\n  local q = " +
                expression({"a", "b", "p"}, 2, false) + "\n  if " + condition({"p", "q"}, 0) +
                "\n    return p\n  end\n  return q\nend\n";
        text += "function h2(a)\n  if " + condition({"a"}, 0) + "\n    error('h2 refused')\n  end\n  return " +
                expression({"a"}, 2, false) + "\nend\n";
        text += "function h3(a, b)\n  local acc = 0\n  for k = 1, 3\n    acc = acc + " +
                expression({"a", "b", "k", "acc"}, 2, false) + "\n    if " + condition({"acc", "k"}, 0) +
                "\n      break\n    end\n  end\n  return acc\nend\n";
        text += "function main(x, y)\n  local m = x\n  local n = " + number() + "\n";
        std::vector<std::string> names = {"x", "y", "m", "n", "g1"};
        if (chance(50)) {
            // Scoping is dynamic: this local hides the helpers' parameter of the same name.
            text += "  local a = " + number() + "\n";
            names.push_back("a");
        }
        block(text, names, 2, 3 + pick(4), false, "  ");
        text += "  return m\nend\n";
        block(text, {"g1", "g2"}, 2, 3 + pick(4), false, "");
        text += "out = out + ' main ' + main(g1, g2)\nout = out + ' main ' + main(" + number() + ", g1)\n";
        return text;
    }
};

// The record a program leaves, and the error that ended it, if any.
std::string run(const std::string& text, bool reference) {
    OrvaneScript script;
    script.referenceRoute = reference;
    std::string ended;
    try {
        script.runScript(text);
    } catch (const std::exception& e) {
        ended = std::string("\nerror: ") + e.what();
    }
    Variable out;
    script.resolveVariable("out", out);
    return out.toString() + ended;
}

}  // namespace

TEST(Differential, GeneratedProgramsGiveTheSameRecordOnBothRoutes) {
    int failures = 0;
    for (int i = 0; i < kPrograms && failures < 3; ++i) {
        std::string text = Generator(unsigned(i)).program();
        std::string compiled = run(text, false), reference = run(text, true);
        if (compiled == reference) continue;
        ++failures;
        ADD_FAILURE() << "program " << i << ":\n" << text << "\ncompiled:\n" << compiled << "\nreference:\n" << reference;
    }
}
