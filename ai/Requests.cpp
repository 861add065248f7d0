#include "ai/Requests.h"

#include <stdexcept>
#include <utility>

#include "ai/ModelFile.h"

namespace orvane {

namespace {

[[noreturn]] void fail(const std::string& message) { throw std::runtime_error(message); }

std::string readTrainingText(const std::string& filePath, const char* missingMessage) {
    if (filePath.empty()) fail(missingMessage);
    std::string text;
    if (!aiReadFile(filePath, text)) fail("Cannot open file: " + filePath);
    return text;
}

void saveIfAsked(const AIRequest& request, const AIModel& model) {
    if (request.saveAfterRun && !request.modelPath.empty() && !aiSaveModelToPath(model, request.modelPath))
        fail("Cannot open file for writing: " + request.modelPath);
}

void generateInto(AIJobResult& result, const AIRequest& request) {
    result.text = aiGenerateTextImpl(request.hasTextInput, request.textInput, result.model, request.genLength, true,
                                     request.escapeCharacter, request.dataSize);
    saveIfAsked(request, result.model);
}

void execute(AIRequest& request, AIJobResult& result) {
    if (request.retrain) {
        std::string text = readTrainingText(request.filePath, "filePath is required for retraining");
        if (request.hasTextInput) text += '\n' + request.textInput;
        result.model = aiTrainModel(text, request.dataSize);
        saveIfAsked(request, result.model);
    } else if (request.skipTraining) {
        if (request.hasModel) {
            result.model = std::move(request.model);
        } else if (request.modelPath.empty()) {
            fail("Either model or modelPath must be provided when skipTraining is true");
        } else if (!aiLoadModelFromPath(result.model, request.modelPath)) {
            fail("Cannot open file: " + request.modelPath);
        }
        generateInto(result, request);
    } else {
        // The seed takes no part in training here.
        result.model = aiTrainModel(readTrainingText(request.filePath, "filePath is required for training"),
                                    request.dataSize);
        generateInto(result, request);
    }
}

}  // namespace

AIJobResult aiExecuteRequest(AIRequest request) {
    AIJobResult result;
    try {
        execute(request, result);
        result.ok = true;
    } catch (const std::exception& e) {
        result = AIJobResult{};
        result.error = e.what();
    }
    return result;
}

}  // namespace orvane
