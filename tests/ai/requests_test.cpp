// Requests executed on the calling thread: the three branches in their order, their messages,
// and the model files they read and write. What a script's positional request reaches of them,
// tests/ai/ai_module.ov shows.
#include <gtest/gtest.h>

#include <string>

#include "ai/MarkovModel.h"
#include "ai/ModelFile.h"
#include "ai/Requests.h"
#include "support.h"

using namespace orvane;

namespace {

AIRequest seededRequest(const std::string& seed) {
    AIRequest request;
    request.hasTextInput = true;
    request.textInput = seed;
    return request;
}

void expectFailure(const AIRequest& request, const std::string& message) {
    const AIJobResult result = aiExecuteRequest(request);
    EXPECT_FALSE(result.ok);
    EXPECT_EQ(result.error, message);
    EXPECT_EQ(result.text, "");
    EXPECT_TRUE(result.model.empty());
}

}  // namespace

TEST(AiRequests, MissingFiles) {
    expectFailure(AIRequest{}, "filePath is required for training");
    AIRequest request;
    request.filePath = "/no/such/corpus.txt";
    expectFailure(request, "Cannot open file: /no/such/corpus.txt");
    request.retrain = true;
    expectFailure(request, "Cannot open file: /no/such/corpus.txt");
    request.filePath.clear();
    expectFailure(request, "filePath is required for retraining");
    AIRequest fromModel;
    fromModel.skipTraining = true;
    expectFailure(fromModel, "Either model or modelPath must be provided when skipTraining is true");
    fromModel.modelPath = "/no/such/model.txt";
    expectFailure(fromModel, "Cannot open file: /no/such/model.txt");
}

TEST(AiRequests, RetrainingAddsTheInputAndStores) {
    TempFolder folder;
    AIRequest request = seededRequest("xyz");
    request.retrain = true;
    request.filePath = folder.write("corpus", "abcabd");
    request.dataSize = 2;
    request.saveAfterRun = true;
    request.modelPath = folder.file("model");
    const AIJobResult result = aiExecuteRequest(request);
    ASSERT_TRUE(result.ok) << result.error;
    EXPECT_EQ(result.text, "");
    EXPECT_EQ(plain(result.model), plain(aiTrainModel("abcabd\nxyz", 2)));
    EXPECT_EQ(folder.read("model"), aiModelToText(result.model));
    // Retraining wins over skipTraining, and without a model path nothing is stored.
    request.hasTextInput = false;
    request.skipTraining = true;
    request.modelPath.clear();
    const AIJobResult plainRetrain = aiExecuteRequest(request);
    ASSERT_TRUE(plainRetrain.ok);
    EXPECT_EQ(plain(plainRetrain.model), plain(aiTrainModel("abcabd", 2)));
}

TEST(AiRequests, GenerationFromAGivenOrStoredModel) {
    TempFolder folder;
    AIRequest request = seededRequest("ab");
    request.skipTraining = true;
    request.hasModel = true;
    request.model = aiTrainModel("abcdefgh", 2);
    request.genLength = 4;
    request.dataSize = 2;
    AIJobResult result = aiExecuteRequest(request);
    ASSERT_TRUE(result.ok) << result.error;
    EXPECT_EQ(result.text, "abcdef");
    EXPECT_EQ(plain(result.model), plain(request.model));
    // The given model wins over a model path, which is then only where the result is stored.
    request.saveAfterRun = true;
    request.modelPath = folder.file("stored");
    ASSERT_TRUE(aiExecuteRequest(request).ok);
    request.hasModel = false;
    request.model.clear();
    request.saveAfterRun = false;
    result = aiExecuteRequest(request);
    ASSERT_TRUE(result.ok) << result.error;
    EXPECT_EQ(result.text, "abcdef");
    EXPECT_EQ(plain(result.model), plain(aiTrainModel("abcdefgh", 2)));
    // The escape is always on here; its default never stops a one-byte step.
    request.textInput = "gh";
    request.genLength = 9;
    EXPECT_EQ(aiExecuteRequest(request).text, "ghabcdefgha");
}

TEST(AiRequests, TrainingOnTheFileAloneThenGenerating) {
    TempFolder folder;
    AIRequest request = seededRequest("zz");
    request.filePath = folder.write("corpus", "abcdefgh");
    request.dataSize = 2;
    // The seed is no part of training: its state is unknown, so nothing is added.
    AIJobResult result = aiExecuteRequest(request);
    ASSERT_TRUE(result.ok) << result.error;
    EXPECT_EQ(result.text, "zz");
    EXPECT_EQ(plain(result.model), plain(aiTrainModel("abcdefgh", 2)));
    request.textInput = "de";
    request.genLength = 3;
    request.saveAfterRun = true;
    request.modelPath = folder.file("model");
    result = aiExecuteRequest(request);
    ASSERT_TRUE(result.ok);
    EXPECT_EQ(result.text, "defgh");
    EXPECT_EQ(folder.read("model"), aiModelToText(result.model));
    // A failure inside generation becomes the result's error, not an exception.
    request.saveAfterRun = false;
    request.dataSize = -1;
    result = aiExecuteRequest(request);
    EXPECT_FALSE(result.ok);
    EXPECT_FALSE(result.error.empty());
}
