// The character-level Markov chain: counts of which byte follows each run of `dataSize` bytes, and
// a weighted random walk over them. Bytes, not characters: a UTF-8 sequence may be split.
#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>

namespace orvane {

// Lets the maps be searched with a string_view, so that training looks a state up without making
// a string of it.
struct AIStringHash {
    using is_transparent = void;
    size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
};

// Next string (one byte when trained) to its count.
using AISuccessors = std::unordered_map<std::string, int32_t, AIStringHash, std::equal_to<>>;
// State (up to `dataSize` bytes) to its successors. Iteration order has no meaning, but it is
// the order in which the weighted walk visits the successors.
using AIModel = std::unordered_map<std::string, AISuccessors, AIStringHash, std::equal_to<>>;

// This thread's generator, seeded once from the system's random device; no seed can be set.
std::mt19937& aiRng();
// Uniform from 1 to n inclusive; 1 when n is below 1.
int32_t aiRandomInt(int32_t n);
// Uniform in [0, 1).
double aiRandomDouble();

// Adds 1 to the count of `next` after `state`, creating entries at 1.
void aiModelIncrement(AIModel& model, std::string_view state, std::string_view next);
// Counts every run of `dataSize` bytes (negative counts as 0) and the byte after it, with the
// text's first bytes appended so that its end leads back into its start.
AIModel aiTrainModel(const std::string& text, int32_t dataSize);
// Walks the model from the end of `input` (or from a random state) for at most `genLength`
// bytes, stopping early at a state with no successors or at a chosen `escapeCharacter`. The seed
// begins the result. A negative `dataSize` with an input throws std::out_of_range.
std::string aiGenerateTextImpl(bool hasInput, const std::string& input, const AIModel& model, int32_t genLength,
                               bool useEscape, const std::string& escapeCharacter, int32_t dataSize);

}  // namespace orvane
