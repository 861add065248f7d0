// The module AI: text generation by the Markov model of ai/, now on the script thread or later on
// the job pool. Models cross as nested tables, converted here on the script thread, so that a
// worker never touches a Variable.
#include <exception>

#include "ai/JobPool.h"
#include "ai/MarkovModel.h"
#include "ai/ModelFile.h"
#include "ai/Requests.h"
#include "host/Binding.h"
#include "host/HostModules.h"

namespace orvane {

namespace {

const char* const kNotAModel = "model must be a nested transition table";

// State to a table of next string to an integer count.
Variable aiModelToVariable(const AIModel& model) {
    VariableTable states;
    states.reserve(model.size());
    for (const auto& [state, successors] : model) {
        VariableTable row;
        row.reserve(successors.size());
        for (const auto& [next, count] : successors) row.emplace(next, Variable(count));
        states.emplace(state, Variable(std::move(row)));
    }
    return Variable(std::move(states));
}

// False unless the value is a table. Entries that are no table, and counts that are no number
// or bool, are passed over; a state left with nothing is not kept.
bool aiModelFromVariable(const Variable& value, AIModel& model) {
    const VariableTable* states = tablePtr(value);
    if (!states) return false;
    model.clear();
    for (const auto& [state, entry] : *states) {
        const VariableTable* successors = tablePtr(entry);
        if (!successors) continue;
        AISuccessors row;
        for (const auto& [next, count] : *successors) {
            switch (count.type) {
            case VarType::Int: row.emplace(next, count.asInt()); break;
            case VarType::Float: row.emplace(next, saturatingInt(double(count.asFloat()))); break;
            case VarType::Bool: row.emplace(next, count.asBool() ? 1 : 0); break;
            default: break;
            }
        }
        if (!row.empty()) model.emplace(state, std::move(row));
    }
    return true;
}

// An argument that exists and is not nil.
bool present(const VariableArray& args, size_t index) { return index < args.size() && !args[index].isNil(); }

// The positional request of AI.generate and AI.generateAsync, all optional; argument errors are
// raised here, on the script thread, under `label`.
AIRequest parseRequest(const VariableArray& args, const std::string& label) {
    AIRequest request;
    if (present(args, 0)) {
        request.textInput = stringValue(args[0], label, "textInput");
        request.hasTextInput = true;
    }
    if (present(args, 1)) request.filePath = stringValue(args[1], label, "filePath");
    if (args.size() > 2) request.retrain = isTruthy(args[2]);
    if (args.size() > 3) request.skipTraining = isTruthy(args[3]);
    if (present(args, 4)) {
        if (!aiModelFromVariable(args[4], request.model)) bindingError(label, kNotAModel);
        request.hasModel = true;
    }
    if (args.size() > 5) request.saveAfterRun = isTruthy(args[5]);
    if (present(args, 6)) request.modelPath = stringValue(args[6], label, "modelPath");
    if (present(args, 7)) request.genLength = integerValue(args[7], label, "genLength");
    if (present(args, 8)) request.escapeCharacter = stringValue(args[8], label, "escapeCharacter");
    if (present(args, 9)) request.dataSize = integerValue(args[9], label, "dataSize");
    return request;
}

Variable defaultdict(const VariableArray&) {
    bindingError("AI.defaultdict", "metatable-backed defaultdict is not supported in OrvaneScript");
}

Variable generate(const VariableArray& args) {
    const std::string label = "AI.generate";
    AIJobResult result = aiExecuteRequest(parseRequest(args, label));
    if (!result.ok) bindingError(label, result.error);
    return returnValues({Variable(std::move(result.text)), aiModelToVariable(result.model)});
}

Variable generateAsync(const VariableArray& args) {
    return Variable(aiSubmitJob(parseRequest(args, "AI.generateAsync")));
}

// Always five results: done, ok, text, model, error.
Variable checkJob(const VariableArray& args) {
    const std::string label = "AI.checkJob";
    const int32_t id = integerValue(requireArg(args, 0, label), label, "jobId");
    AIJobResult result;
    const Variable nil;
    switch (aiCheckJob(id, result)) {
    case AIJobState::Unknown: return returnValues({true, false, nil, nil, Variable("Unknown job id")});
    case AIJobState::Running: return returnValues({false, nil, nil, nil, nil});
    case AIJobState::Finished: break;
    }
    if (!result.ok) return returnValues({true, false, nil, nil, Variable(std::move(result.error))});
    return returnValues({true, true, Variable(std::move(result.text)), aiModelToVariable(result.model), nil});
}

// Straight to the generator on the script thread; the escape test is on only when one is given.
Variable generateText(const VariableArray& args) {
    const std::string label = "AI.generateText";
    const bool hasInput = present(args, 0);
    const std::string input = hasInput ? stringValue(args[0], label, "textInput") : std::string();
    AIModel model;
    if (!aiModelFromVariable(requireArg(args, 1, label), model)) bindingError(label, kNotAModel);
    const int32_t genLength = integerValue(requireArg(args, 2, label), label, "genLength");
    const bool useEscape = present(args, 3);
    const std::string escape = useEscape ? stringValue(args[3], label, "escapeCharacter") : std::string();
    const int32_t dataSize = integerValue(requireArg(args, 4, label), label, "dataSize");
    try {
        return Variable(aiGenerateTextImpl(hasInput, input, model, genLength, useEscape, escape, dataSize));
    } catch (const std::exception& e) {
        // A negative dataSize with a seed: the generator's range failure, under this label.
        bindingError(label, e.what());
    }
}

Variable saveModel(const VariableArray& args) {
    const std::string label = "AI.saveModel";
    AIModel model;
    if (!aiModelFromVariable(requireArg(args, 0, label), model)) bindingError(label, kNotAModel);
    const std::string path = stringValue(requireArg(args, 1, label), label, "filePath");
    if (!aiSaveModelToPath(model, path)) bindingError(label, "Cannot open file for writing: " + path);
    return Variable();
}

Variable loadModel(const VariableArray& args) {
    const std::string label = "AI.loadModel";
    const std::string path = stringValue(requireArg(args, 0, label), label, "filePath");
    AIModel model;
    bool opened = false;
    try {
        opened = aiLoadModelFromPath(model, path);
    } catch (const std::exception& e) {
        // A count of more digits than 32 bits hold: the conversion's range failure.
        bindingError(label, e.what());
    }
    if (!opened) bindingError(label, "Cannot open file: " + path);
    return aiModelToVariable(model);
}

}  // namespace

Variable makeAiModule() {
    return makeModule("AI", {{"defaultdict", defaultdict}, {"generate", generate}, {"generateAsync", generateAsync},
                             {"checkJob", checkJob}, {"generateText", generateText}, {"saveModel", saveModel},
                             {"loadModel", loadModel}});
}

}  // namespace orvane
