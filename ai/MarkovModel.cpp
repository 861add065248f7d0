#include "ai/MarkovModel.h"

#include <algorithm>
#include <climits>
#include <iterator>

namespace orvane {

std::mt19937& aiRng() {
    thread_local std::mt19937 generator{std::random_device{}()};
    return generator;
}

int32_t aiRandomInt(int32_t n) {
    if (n < 1) return 1;
    return std::uniform_int_distribution<int32_t>(1, n)(aiRng());
}

double aiRandomDouble() {
    // 53 random bits over 2^53: never 1.0, which the library's canonical form cannot promise.
    std::mt19937& generator = aiRng();
    const uint64_t high = generator() >> 5, low = generator() >> 6;
    return double(high * 67108864u + low) / 9007199254740992.0;
}

void aiModelIncrement(AIModel& model, std::string_view state, std::string_view next) {
    auto row = model.find(state);
    if (row == model.end()) row = model.emplace(std::string(state), AISuccessors{}).first;
    auto cell = row->second.find(next);
    if (cell == row->second.end()) {
        row->second.emplace(std::string(next), 1);
    } else if (cell->second < INT32_MAX) {
        // A count saturates rather than wrapping negative: it would take a 2 GB run of one state.
        ++cell->second;
    }
}

AIModel aiTrainModel(const std::string& text, int32_t dataSize) {
    const size_t n = dataSize < 0 ? 0 : size_t(dataSize);
    std::string circular;
    circular.reserve(text.size() + std::min(n, text.size()));
    circular = text;
    if (n > 0 && !text.empty()) circular.append(text, 0, std::min(n, text.size()));
    AIModel model;
    const std::string_view view(circular);
    for (size_t i = 0; i + n < view.size(); ++i) aiModelIncrement(model, view.substr(i, n), view.substr(i + n, 1));
    return model;
}

std::string aiGenerateTextImpl(bool hasInput, const std::string& input, const AIModel& model, int32_t genLength,
                               bool useEscape, const std::string& escapeCharacter, int32_t dataSize) {
    std::string state;
    if (hasInput && int64_t(dataSize) <= int64_t(input.size())) {
        // A negative size asks for a start past the end: substr throws, as documented.
        state = input.substr(size_t(int64_t(input.size()) - int64_t(dataSize)));
    } else if (model.empty()) {
        return hasInput ? input : std::string();
    } else {
        // The key at a uniform position of the iteration order; walked to, not copied into a list.
        state = std::next(model.begin(), aiRandomInt(int32_t(std::min<size_t>(model.size(), INT32_MAX))) - 1)->first;
    }
    std::string output = hasInput ? input : state;

    for (int32_t step = 0; step < genLength; ++step) {
        const auto row = model.find(state);
        if (row == model.end() || row->second.empty()) break;
        double sum = 0;
        for (const auto& [next, count] : row->second) sum += count;
        if (!(sum > 0)) break;
        double r = sum * aiRandomDouble();
        const std::string* chosen = nullptr;
        for (const auto& [next, count] : row->second) {
            if (r < count) {
                chosen = &next;
                break;
            }
            r -= count;
        }
        // Rounding, or negative counts from a script's model, can walk past every successor.
        if (!chosen) chosen = &row->second.begin()->first;
        if (useEscape && *chosen == escapeCharacter) break;
        output += *chosen;
        if (dataSize > 0) {
            if (state.size() < size_t(dataSize)) {
                state += *chosen;
            } else {
                state.erase(0, 1);
                if (state.size() > size_t(dataSize) - 1) state.resize(size_t(dataSize) - 1);
                state += *chosen;
            }
        } else {
            state = *chosen;
        }
    }
    return output;
}

}  // namespace orvane
