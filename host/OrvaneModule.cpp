// The module `Orvane`: small host services for scripts.
#include <algorithm>
#include <fstream>
#include <iostream>
#include <thread>

#include "host/Binding.h"
#include "host/HeadlessRun.h"
#include "host/HostModules.h"
#include "host/ProcessObjects.h"

namespace orvane {

namespace {

void ot_sleep_ms(int32_t milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

int32_t millisecondsSince(std::chrono::system_clock::time_point start) {
    auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now() - start);
    return int32_t(uint32_t(uint64_t(elapsed.count())));
}

Variable setVar(const VariableArray& args) {
    const std::string label = "Orvane.setVar";
    std::string name = stringValue(requireArg(args, 0, label), label, "name");
    Variable value = args.size() > 1 ? args[1] : Variable();
    if (args.size() < 3 || !isNumericVariable(args[2])) {
        engine.pushVariable(name, value);
        return Variable();
    }
    switch (integerValue(args[2], label, "datatype")) {
    case 0: engine.pushVariable(name, Variable(integerValue(value, label, "value"))); break;
    case 1: engine.pushVariable(name, Variable(floatValue(value, label, "value"))); break;
    case 2: engine.pushVariable(name, Variable(isTruthy(value))); break;
    case 3: engine.pushVariable(name, Variable(stringValue(value, label, "value"))); break;
    case 4:
    case 5: engine.pushVariable(name, value); break;
    default: engine.pushVariable(name, Variable(false)); break;
    }
    return Variable();
}

Variable readFile(const VariableArray& args) {
    const std::string label = "Orvane.readFile";
    std::string filePath = stringValue(requireArg(args, 0, label), label, "path");
    std::ifstream file(filePath, std::ios::binary);
    if (!file) throw std::runtime_error("failed to read file: " + filePath);
    // Grown as bytes arrive: a directory opens, claims an enormous size and gives nothing.
    std::string content;
    char buffer[1 << 16];
    while (file.read(buffer, sizeof buffer) || file.gcount() > 0) content.append(buffer, size_t(file.gcount()));
    if (file.bad()) throw std::runtime_error("failed to read file: " + filePath);
    return Variable(std::move(content));
}

}  // namespace

int32_t checkbounds(int32_t x, int32_t y, const std::vector<buttonVec>& list) {
    for (const buttonVec& b : list) {
        auto [left, right] = std::minmax(b.x1, b.x2);
        auto [top, bottom] = std::minmax(b.y1, b.y2);
        if (x > left && x < right && y > top && y < bottom) return b.result;
    }
    return 0;
}

int32_t calculateChecksum(const std::string& text) {
    uint32_t sum = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        sum = (sum >> 29) | (sum << 3);
        sum += uint32_t(static_cast<unsigned char>(text[i])) * uint32_t(i + 1);
    }
    return int32_t(sum);
}

Variable makeOrvaneModule() {
    return makeModule("Orvane", {
        {"runScript", [](const VariableArray& args) {
             engine.runScript(stringValue(requireArg(args, 0, "Orvane.runScript"), "Orvane.runScript", "scriptText"));
             return Variable();
         }},
        {"getVar", [](const VariableArray& args) {
             try {
                 return engine.pullVariable(stringValue(requireArg(args, 0, "Orvane.getVar"), "Orvane.getVar", "name"));
             } catch (const std::exception&) {
                 return Variable();
             }
         }},
        {"setVar", setVar},
        {"getGlobalTime", [](const VariableArray&) {
             const int64_t fixed = headlessClockMs();
             return Variable(fixed >= 0 ? int32_t(uint32_t(fixed)) : millisecondsSince(gtime));
         }},
        {"getClock", [](const VariableArray&) {
             // On the fixed clock an interval is the frames shown since the last call.
             static int64_t lastFixed = 0;
             const int64_t fixed = headlessClockMs();
             if (fixed >= 0) {
                 const int64_t interval = fixed - lastFixed;
                 lastFixed = fixed;
                 return Variable(int32_t(interval));
             }
             int32_t interval = millisecondsSince(wtime);
             wtime = std::chrono::system_clock::now();
             return Variable(interval);
         }},
        {"sleep", [](const VariableArray& args) {
             int32_t ms = integerValue(requireArg(args, 0, "Orvane.sleep"), "Orvane.sleep", "milliseconds");
             if (ms > 0 && headlessClockMs() < 0) ot_sleep_ms(ms);
             return Variable();
         }},
        {"checkButton", [](const VariableArray& args) {
             const char* label = "Orvane.checkButton";
             int32_t x = integerValue(requireArg(args, 0, label), label, "x");
             int32_t y = integerValue(requireArg(args, 1, label), label, "y");
             return Variable(checkbounds(x, y, buttons));
         }},
        {"pushButton", [](const VariableArray& args) {
             const char* label = "Orvane.pushButton";
             buttonVec b;
             b.x1 = integerValue(requireArg(args, 0, label), label, "x1");
             b.x2 = integerValue(requireArg(args, 1, label), label, "x2");
             b.y1 = integerValue(requireArg(args, 2, label), label, "y1");
             b.y2 = integerValue(requireArg(args, 3, label), label, "y2");
             b.result = integerValue(requireArg(args, 4, label), label, "result");
             buttons.push_back(b);
             return Variable();
         }},
        {"clearButtons", [](const VariableArray&) {
             buttons.clear();
             return Variable();
         }},
        {"checksum", [](const VariableArray& args) {
             return Variable(calculateChecksum(stringValue(requireArg(args, 0, "Orvane.checksum"), "Orvane.checksum", "text")));
         }},
        {"getPath", [](const VariableArray&) { return Variable(path); }},
        {"hostLog", [](const VariableArray& args) {
             std::cerr << stringValue(requireArg(args, 0, "Orvane.hostLog"), "Orvane.hostLog", "message") << '\n' << std::flush;
             return Variable();
         }},
        {"readFile", readFile},
    });
}

}  // namespace orvane
