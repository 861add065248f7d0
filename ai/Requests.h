// A request to the text generator, as a script's arguments give it, and its execution: train
// and store, generate from a given model, or train on a file and generate.
#pragma once

#include <cstdint>
#include <string>

#include "ai/MarkovModel.h"

namespace orvane {

struct AIRequest {
    bool hasTextInput = false;
    std::string textInput;     // the seed; extra training text when retraining
    bool retrain = false;      // train (and store), generate nothing
    bool skipTraining = false; // generate from `model` or the file at `modelPath`
    bool hasModel = false;
    AIModel model;
    bool saveAfterRun = false; // store the result's model at `modelPath`
    std::string filePath;      // training text
    std::string modelPath;
    int32_t genLength = 100;
    std::string escapeCharacter = ",,,";  // three bytes: as a default it never stops anything
    int32_t dataSize = 3;
};

struct AIJobResult {
    bool ok = false;
    std::string text;
    AIModel model;
    std::string error;
};

// Never throws a standard exception: every failure comes back as `ok` false with its message.
// Taken by value so that a given model moves into the result instead of being copied twice.
AIJobResult aiExecuteRequest(AIRequest request);

}  // namespace orvane
