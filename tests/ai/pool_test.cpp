// The job pool and the job table under load: many jobs from several threads at once, every result
// checked and delivered once, and a process that ends with jobs still queued. Also built under
// ThreadSanitizer (tests/tsan), so it includes nothing but ai/ and keeps quick.
#include <gtest/gtest.h>

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "ai/JobPool.h"
#include "ai/MarkovModel.h"
#include "ai/ModelFile.h"

using namespace orvane;

namespace {

const std::string kAlphabet = "abcdefghijklmnopqrstuvwxyz";

// Every letter follows the one before it, so the text of a seed and a length is fixed.
std::string forcedText(size_t start, size_t length) {
    std::string text;
    for (size_t i = 0; i <= length; ++i) text += kAlphabet[(start + i) % kAlphabet.size()];
    return text;
}

AIRequest forcedRequest(const AIModel& model, size_t start, int32_t length) {
    AIRequest request;
    request.hasTextInput = true;
    request.textInput = std::string(1, kAlphabet[start % kAlphabet.size()]);
    request.skipTraining = true;
    request.hasModel = true;
    request.model = model;
    request.genLength = length;
    request.dataSize = 1;
    return request;
}

AIJobResult waitFor(int32_t id) {
    AIJobResult result;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    AIJobState state;
    while ((state = aiCheckJob(id, result)) == AIJobState::Running && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(state, AIJobState::Finished) << "job " << id;
    return result;
}

}  // namespace

TEST(AiPool, SizesAndEveryTaskOnce) {
    const unsigned hardware = std::thread::hardware_concurrency();
    EXPECT_EQ(aiDefaultThreadCount(), hardware < 2 ? 1u : hardware - 1);
    EXPECT_EQ(AIThreadPool(0).size(), 1u);
    EXPECT_EQ(AIThreadPool(3).size(), 3u);

    AIThreadPool pool(3);
    std::vector<std::future<long>> futures;
    for (long i = 0; i < 2000; ++i) futures.push_back(pool.submit([i] { return i * i; }));
    for (long i = 0; i < 2000; ++i) ASSERT_EQ(futures[size_t(i)].get(), i * i);
}

TEST(AiPool, DestructionRunsOutTheQueue) {
    std::atomic<int> runs{0};
    std::atomic<bool> release{false};
    {
        AIThreadPool pool(1);
        // The one worker is held while the queue fills, so these are all still queued at the end.
        pool.submit([&release] { while (!release) std::this_thread::yield(); });
        for (int i = 0; i < 300; ++i) pool.submit([&runs] { ++runs; });
        release = true;
    }
    EXPECT_EQ(runs.load(), 300);
}

TEST(AiJobs, ManySubmittersEveryResultOnce) {
    const AIModel model = aiTrainModel(kAlphabet, 1);
    constexpr int kThreads = 4, kJobsEach = 40;
    struct Job {
        int32_t id;
        size_t start;
        int32_t length;
    };
    std::vector<std::vector<Job>> submitted(kThreads);
    std::vector<std::thread> submitters;
    for (int t = 0; t < kThreads; ++t)
        submitters.emplace_back([&, t] {
            for (int j = 0; j < kJobsEach; ++j) {
                const size_t start = size_t(t * 7 + j);
                const int32_t length = (t * kJobsEach + j) % 60;
                submitted[size_t(t)].push_back({aiSubmitJob(forcedRequest(model, start, length)), start, length});
            }
        });
    for (std::thread& submitter : submitters) submitter.join();

    std::set<int32_t> ids;
    for (const auto& jobs : submitted)
        for (const Job& job : jobs) {
            ASSERT_TRUE(ids.insert(job.id).second) << "id given twice: " << job.id;
            const AIJobResult result = waitFor(job.id);
            ASSERT_TRUE(result.ok) << result.error;
            EXPECT_EQ(result.text, forcedText(job.start, size_t(job.length)));
            EXPECT_EQ(result.model.size(), kAlphabet.size());
            AIJobResult again;
            EXPECT_EQ(aiCheckJob(job.id, again), AIJobState::Unknown);
        }
    // The ids are a run without gaps.
    EXPECT_EQ(*ids.rbegin() - *ids.begin() + 1, int32_t(ids.size()));
}

TEST(AiJobs, IdsInCallingOrderFailuresUnknownIdsAndARunningJob) {
    AIRequest failing;  // no training file
    const int32_t first = aiSubmitJob(failing);
    const int32_t second = aiSubmitJob(forcedRequest(aiTrainModel(kAlphabet, 1), 0, 3));
    EXPECT_EQ(second, first + 1);
    const AIJobResult failed = waitFor(first);
    EXPECT_FALSE(failed.ok);
    EXPECT_EQ(failed.error, "filePath is required for training");
    EXPECT_EQ(waitFor(second).text, "abcd");
    AIJobResult none;
    EXPECT_EQ(aiCheckJob(-5, none), AIJobState::Unknown);
    EXPECT_EQ(aiCheckJob(first, none), AIJobState::Unknown);
    // A long walk round a forced circle is still running when first checked, and the check
    // does not wait for it.
    const int32_t id = aiSubmitJob(forcedRequest(aiTrainModel(kAlphabet, 1), 0, 300000));
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(aiCheckJob(id, none), AIJobState::Running);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(1));
    EXPECT_EQ(waitFor(id).text.size(), 300001u);
}

// In a child process of this binary: queue slow jobs that store models, note how many files exist
// on the way out, and end. The parent checks that every job ran before the process ended.
TEST(AiJobsAtExit, ChildQueuesJobsAndEnds) {
    const char* folder = std::getenv("OT_AI_EXIT_FOLDER");
    if (!folder) GTEST_SKIP() << "runs as the child of QueuedJobsRunBeforeTheProcessEnds";
    const std::string corpus = std::string(folder) + "/corpus.txt";
    {
        std::ofstream out(corpus, std::ios::binary);
        for (int i = 0; i < 20000; ++i) out << "line " << i % 97 << " of the corpus\n";
    }
    for (int i = 0; i < 10; ++i) {
        AIRequest request;
        request.retrain = true;
        request.filePath = corpus;
        request.dataSize = 6;
        request.saveAfterRun = true;
        request.modelPath = std::string(folder) + "/model" + std::to_string(i);
        aiSubmitJob(request);
    }
    int stored = 0;
    for (int i = 0; i < 10; ++i) stored += std::filesystem::exists(std::string(folder) + "/model" + std::to_string(i));
    std::ofstream(std::string(folder) + "/stored_at_end") << stored;
}

TEST(AiJobsAtExit, QueuedJobsRunBeforeTheProcessEnds) {
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("ot-ai-exit-" + std::to_string(getpid()));
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    // A binary built for another CPU runs its child under the same emulator as itself.
    const std::string command = "OT_AI_EXIT_FOLDER='" + folder.string() + "' ${OT_EMULATOR:-} '" + self +
                                "' --gtest_filter=AiJobsAtExit.ChildQueuesJobsAndEnds > /dev/null";
    ASSERT_EQ(std::system(command.c_str()), 0);

    int storedAtEnd = -1;
    std::ifstream(folder / "stored_at_end") >> storedAtEnd;
    EXPECT_GE(storedAtEnd, 0);
    EXPECT_LT(storedAtEnd, 10) << "every job had already finished: nothing was left queued";
    AIModel first;
    ASSERT_TRUE(aiLoadModelFromPath(first, (folder / "model0").string()));
    EXPECT_FALSE(first.empty());
    for (int i = 1; i < 10; ++i) {
        AIModel model;
        ASSERT_TRUE(aiLoadModelFromPath(model, (folder / ("model" + std::to_string(i))).string())) << i;
        EXPECT_EQ(model, first) << i;
    }
    std::filesystem::remove_all(folder);
}
