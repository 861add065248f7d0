// The Markov model from outside: training counted by hand, generation exactly where every choice
// is forced and by its weights where it is not. That each step of a walk over random text is one
// the text holds, the fuzz target checks.
#include <gtest/gtest.h>

#include <climits>
#include <set>
#include <stdexcept>
#include <string>

#include "ai/MarkovModel.h"
#include "support.h"

using namespace orvane;

namespace {

std::string generate(const AIModel& model, int32_t length, int32_t dataSize) {
    return aiGenerateTextImpl(false, "", model, length, false, "", dataSize);
}

std::string seeded(const std::string& seed, const AIModel& model, int32_t length, int32_t dataSize) {
    return aiGenerateTextImpl(true, seed, model, length, false, "", dataSize);
}

}  // namespace

TEST(MarkovTraining, SmallTextsCountedByHand) {
    EXPECT_EQ(plain(aiTrainModel("abab", 2)), (PlainModel{{"ab", {{"a", 2}}}, {"ba", {{"b", 2}}}}));
    EXPECT_EQ(plain(aiTrainModel("aab", 1)), (PlainModel{{"a", {{"a", 1}, {"b", 1}}}, {"b", {{"a", 1}}}}));
    // Any byte is a byte: a zero and the separators of the file form too.
    const std::string zero(1, '\0');
    EXPECT_EQ(plain(aiTrainModel("a" + zero + "|" + zero, 1)),
              (PlainModel{{"a", {{zero, 1}}}, {zero, {{"|", 1}, {"a", 1}}}, {"|", {{zero, 1}}}}));
    // Order 0 is a byte histogram under the one empty state.
    EXPECT_EQ(plain(aiTrainModel("abca", 0)), (PlainModel{{"", {{"a", 2}, {"b", 1}, {"c", 1}}}}));
    for (int32_t n : {-1, 0, 1, 3, 50}) EXPECT_TRUE(aiTrainModel("", n).empty()) << n;
    EXPECT_EQ(plain(aiTrainModel("hello", -4)), plain(aiTrainModel("hello", 0)));
    // Shorter than the order: the copy is only twice the text.
    EXPECT_EQ(plain(aiTrainModel("ab", 3)), (PlainModel{{"aba", {{"b", 1}}}}));
    EXPECT_TRUE(aiTrainModel("ab", 4).empty());
    EXPECT_TRUE(aiTrainModel("a", 5).empty());
    // A count saturates rather than wrapping negative.
    AIModel model = modelOf({{"ab", {{"c", INT32_MAX}}}});
    aiModelIncrement(model, "ab", "c");
    EXPECT_EQ(model["ab"]["c"], INT32_MAX);
}

TEST(MarkovRandom, RangesHold) {
    for (int32_t n : {INT32_MIN, -5, 0, 1}) EXPECT_EQ(aiRandomInt(n), 1);
    std::set<int32_t> seen;
    for (int i = 0; i < 2000; ++i) {
        const int32_t value = aiRandomInt(6);
        ASSERT_GE(value, 1);
        ASSERT_LE(value, 6);
        seen.insert(value);
        const double fraction = aiRandomDouble();
        ASSERT_GE(fraction, 0.0);
        ASSERT_LT(fraction, 1.0);
    }
    EXPECT_EQ(seen.size(), 6u);
}

TEST(MarkovGeneration, ForcedChainsGiveExactText) {
    // Every byte of "abcdefgh" is distinct, so each state has exactly one successor.
    const AIModel chain = aiTrainModel("abcdefgh", 2);
    EXPECT_EQ(seeded("ab", chain, 5, 2), "abcdefg");
    EXPECT_EQ(seeded("xxgh", chain, 4, 2), "xxghabcd");  // round the circle, from the seed's tail
    EXPECT_EQ(seeded("ab", chain, 0, 2), "ab");
    EXPECT_EQ(seeded("ab", chain, -7, 2), "ab");
    EXPECT_EQ(seeded("zz", chain, 10, 2), "zz");  // a state the model lacks ends at once
    // Without a seed the output begins with the chosen state, which then runs on.
    const std::string text = generate(chain, 6, 2);
    ASSERT_EQ(text.size(), 8u);
    const std::string circle = "abcdefghabcdefgh";
    EXPECT_NE(circle.find(text), std::string::npos) << text;
    const std::string state = generate(chain, 0, 2);
    EXPECT_EQ(state.size(), 2u);
    EXPECT_TRUE(chain.count(state)) << state;
    // A count of 1 at the only successor is taken whatever the random value.
    const AIModel single = modelOf({{"q", {{"r", 1}}}, {"r", {{"q", 1}}}});
    for (int i = 0; i < 50; ++i) ASSERT_EQ(seeded("q", single, 4, 1), "qrqrq");
    // Order 0: the state after a step is that byte, which the histogram's one state is not.
    const AIModel histogram = aiTrainModel("aaaa", 0);
    EXPECT_EQ(generate(histogram, 10, 0), "a");
    EXPECT_EQ(seeded("zz", histogram, 10, 0), "zza");
}

TEST(MarkovGeneration, SeedsShorterThanTheOrderAndEmptyModels) {
    const AIModel chain = aiTrainModel("abcdefgh", 3);
    // The seed cannot act as the state: a random one does, and only what follows it is added.
    const std::string text = seeded("x", chain, 5, 3);
    ASSERT_EQ(text.size(), 6u);
    EXPECT_EQ(text[0], 'x');
    EXPECT_NE(std::string("abcdefghabcdefgh").find(text.substr(1)), std::string::npos) << text;
    EXPECT_EQ(seeded("seed", AIModel{}, 100, 3), "seed");
    EXPECT_EQ(seeded("", AIModel{}, 100, 3), "");
    EXPECT_EQ(generate(AIModel{}, 100, 3), "");
    // A negative order with a seed asks for bytes past its end.
    EXPECT_THROW(seeded("abc", chain, 5, -1), std::out_of_range);
}

TEST(MarkovGeneration, EscapeStopsOnlyAsOneChosenByte) {
    const AIModel chain = aiTrainModel("abc,def", 1);
    EXPECT_EQ(aiGenerateTextImpl(true, "a", chain, 100, true, ",", 1), "abc");
    // The escape in the seed is kept; only a generated one stops.
    EXPECT_EQ(aiGenerateTextImpl(true, "a,d", chain, 2, true, ",", 1), "a,def");
    // A three-byte escape never matches a one-byte step.
    EXPECT_EQ(aiGenerateTextImpl(true, "a", chain, 13, true, ",,,", 1), "abc,defabc,def");
    // Switched off, the same byte is just text.
    EXPECT_EQ(aiGenerateTextImpl(true, "a", chain, 4, false, ",", 1), "abc,d");
}

TEST(MarkovGeneration, ChoicesFollowTheCounts) {
    // Counts that sum to nothing stop the walk; negative ones are walked over.
    EXPECT_EQ(seeded("s", modelOf({{"s", {{"x", -5}, {"y", 0}}}}), 10, 1), "s");
    // Whatever the iteration order, a sum of 2 is walked to "y": "x" adds 1 back to r.
    const AIModel odd = modelOf({{"s", {{"x", -1}, {"y", 3}}}, {"y", {{"s", 1}}}});
    for (int i = 0; i < 50; ++i) ASSERT_EQ(seeded("s", odd, 4, 1), "sysys");
    const AIModel weighted = modelOf({{"", {{"a", 3}, {"b", 1}}}});
    int as = 0;
    for (int i = 0; i < 4000; ++i) {
        const std::string text = generate(weighted, 1, 0);
        ASSERT_EQ(text.size(), 1u);
        as += text == "a";
    }
    // 3000 expected, with a standard deviation near 27.
    EXPECT_GT(as, 2800);
    EXPECT_LT(as, 3200);
}
