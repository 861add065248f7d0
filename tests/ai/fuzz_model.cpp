// libFuzzer target: any bytes as a model file, then as a training text. The loader must take
// them without a fault, answering a too-large count only with its range failure; what it keeps
// must come back unchanged through the file form, since nothing it keeps needs escaping. As a
// corpus, the bytes train a model whose walk emits only steps that the circular text holds.
#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

#include "ai/MarkovModel.h"
#include "ai/ModelFile.h"

using namespace orvane;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    AIModel model;
    try {
        aiModelFromText(bytes, model);
    } catch (const std::out_of_range&) {
        model.clear();
    }
    for (const auto& [state, successors] : model) {
        if (state.empty() || state.find_first_of("|\n") != std::string::npos) std::abort();
        for (const auto& [next, count] : successors)
            if (next.empty() || next.find_first_of(",:\n") != std::string::npos || count < 0) std::abort();
    }
    AIModel again;
    aiModelFromText(aiModelToText(model), again);
    if (again != model) std::abort();

    if (size < 1) return 0;
    const int32_t order = data[0] % 8;
    // Bounded, so that the search for each emitted step below stays quick.
    const std::string text(bytes.substr(1, 4096));
    const AIModel trained = aiTrainModel(text, order);
    const std::string output = aiGenerateTextImpl(false, "", trained, 64, false, "", order);
    if (text.empty() || text.size() * 2 <= size_t(order)) {
        if (!output.empty()) std::abort();
        return 0;
    }
    const std::string circle = text + text.substr(0, std::min<size_t>(size_t(order), text.size()));
    for (size_t i = 0; i + size_t(order) < output.size(); ++i)
        if (circle.find(output.substr(i, size_t(order) + 1)) == std::string::npos) std::abort();
    return 0;
}
