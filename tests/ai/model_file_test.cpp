// Model files: the text form, the round trip, lines that do not parse (among them every piece
// that the unescaped format loses), and files made to hurt.
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "ai/MarkovModel.h"
#include "ai/ModelFile.h"
#include "support.h"

using namespace orvane;

namespace {

PlainModel parsed(const std::string& text) {
    AIModel model;
    aiModelFromText(text, model);
    return plain(model);
}

}  // namespace

TEST(ModelFile, TextFormOfSmallModels) {
    AIModel model;
    model["ab"]["c"] = 3;
    EXPECT_EQ(aiModelToText(model), "ab|c:3");
    model["ab"]["d"] = 1;
    const std::string text = aiModelToText(model);
    EXPECT_TRUE(text == "ab|c:3,d:1" || text == "ab|d:1,c:3") << text;
    model["x"]["y"] = -2;
    const std::string two = aiModelToText(model);
    EXPECT_EQ(std::count(two.begin(), two.end(), '\n'), 1);  // between lines, none after the last
    EXPECT_NE(two.back(), '\n');
    EXPECT_EQ(aiModelToText(AIModel{}), "");
}

TEST(ModelFile, RoundTripThroughAFile) {
    TempFolder folder;
    std::string corpus;
    for (int i = 0; i < 3000; ++i) corpus += char("the quick brown fox jumps\xff\x01"[i * 7 % 27]);
    corpus += std::string("\0\0x", 3);
    for (int32_t n : {1, 3, 6}) {
        const AIModel model = aiTrainModel(corpus, n);
        const std::string path = folder.file("model" + std::to_string(n));
        ASSERT_TRUE(aiSaveModelToPath(model, path));
        AIModel loaded;
        loaded["stale"]["x"] = 1;
        ASSERT_TRUE(aiLoadModelFromPath(loaded, path));
        EXPECT_EQ(plain(loaded), plain(model)) << n;
        EXPECT_EQ(folder.read("model" + std::to_string(n)), aiModelToText(model));
    }
    // Saving truncates what was there.
    AIModel small;
    small["a"]["b"] = 1;
    ASSERT_TRUE(aiSaveModelToPath(small, folder.file("model3")));
    EXPECT_EQ(folder.read("model3"), "a|b:1");
}

TEST(ModelFile, LinesAndPiecesThatDoNotParseAreSkipped) {
    EXPECT_EQ(parsed("x|y:2,z:q,:7"), (PlainModel{{"x", {{"y", 2}}}}));
    EXPECT_EQ(parsed("x|y:2\n"), parsed("x|y:2"));
    EXPECT_EQ(parsed("no bar\n|a:1\nb|\nc|d:1"), (PlainModel{{"c", {{"d", 1}}}}));
    EXPECT_EQ(parsed("a|,,b:1,,c,d:,e:5x,f: 1,g:-1,h:+1,i:00012,"), (PlainModel{{"a", {{"b", 1}, {"i", 12}}}}));
    // Entries are set, not added; lines for the same state merge.
    EXPECT_EQ(parsed("a|b:1,b:5\na|c:2"), (PlainModel{{"a", {{"b", 5}, {"c", 2}}}}));
    // A piece is cut at its first colon: what follows must be all digits.
    EXPECT_EQ(parsed("a|b:1:2"), PlainModel{});
    EXPECT_EQ(parsed("\n\n\n"), PlainModel{});
    // A carriage return before the line feed leaves a count that is no number.
    EXPECT_EQ(parsed("a|b:1\r\nc|d:2"), (PlainModel{{"c", {{"d", 2}}}}));
}

TEST(ModelFile, HostileFiles) {
    // Counts beyond 32 bits raise the conversion's range failure; the largest one fits.
    EXPECT_EQ(parsed("a|b:2147483647"), (PlainModel{{"a", {{"b", 2147483647}}}}));
    EXPECT_THROW(parsed("a|b:2147483648"), std::out_of_range);
    EXPECT_THROW(parsed("a|b:1,c:" + std::string(5000, '9')), std::out_of_range);
    // Binary bytes other than the three separators and the line feed come through.
    const std::string binary("\0\xff\x80\r\t", 5);
    EXPECT_EQ(parsed(binary + "|" + binary + ":7"), (PlainModel{{binary, {{binary, 7}}}}));
    // One long line: a million-byte state, a hundred thousand entries, then a line with no bar.
    std::string line = std::string(1000000, 's') + "|";
    for (int i = 0; i < 100000; ++i) line += (i ? "," : "") + std::to_string(i) + "n:" + std::to_string(i);
    const PlainModel big = parsed(line + "\n" + std::string(4000000, 'q'));
    ASSERT_EQ(big.size(), 1u);
    EXPECT_EQ(big.begin()->second.size(), 100000u);
    EXPECT_EQ(big.begin()->second.at("99999n"), 99999);
    // Separators alone.
    EXPECT_EQ(parsed(std::string(100000, '|') + std::string(100000, ',') + std::string(100000, ':')), PlainModel{});
    EXPECT_EQ(parsed("a||b:1"), (PlainModel{{"a", {{"|b", 1}}}}));
}

TEST(ModelFile, FilesThatDoNotOpen) {
    TempFolder folder;
    AIModel model;
    model["keep"]["me"] = 1;
    EXPECT_FALSE(aiLoadModelFromPath(model, folder.file("absent")));
    EXPECT_FALSE(aiLoadModelFromPath(model, folder.path.string()));  // a folder
    EXPECT_EQ(plain(model), (PlainModel{{"keep", {{"me", 1}}}}));
    EXPECT_FALSE(aiSaveModelToPath(model, folder.file("no/such/folder/model")));
    EXPECT_FALSE(aiSaveModelToPath(model, folder.path.string()));
    // An empty file opens, clears the model and gives nothing.
    ASSERT_TRUE(aiLoadModelFromPath(model, folder.write("empty", "")));
    EXPECT_TRUE(model.empty());
    std::string text = "stale";
    EXPECT_FALSE(aiReadFile(folder.path.string(), text));
    EXPECT_TRUE(aiReadFile(folder.write("bytes", std::string("a\0b", 3)), text));
    EXPECT_EQ(text, std::string("a\0b", 3));
}
