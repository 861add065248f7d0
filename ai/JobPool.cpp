#include "ai/JobPool.h"

#include <chrono>
#include <exception>
#include <utility>

namespace orvane {

AIThreadPool::AIThreadPool(size_t threadCount) {
    if (threadCount == 0) threadCount = 1;
    workers.reserve(threadCount);
    for (size_t i = 0; i < threadCount; ++i) workers.emplace_back([this] { work(); });
}

AIThreadPool::~AIThreadPool() {
    {
        std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
    }
    wake.notify_all();
    for (std::thread& worker : workers) worker.join();
}

void AIThreadPool::work() {
    while (true) {
        std::function<void()> task;
        {
            std::unique_lock<std::mutex> lock(mutex);
            wake.wait(lock, [this] { return stopping || !tasks.empty(); });
            // Queued tasks still run after `stopping`: the queue empties before a worker leaves.
            if (stopping && tasks.empty()) return;
            task = std::move(tasks.front());
            tasks.pop_front();
        }
        task();
    }
}

size_t aiDefaultThreadCount() {
    const unsigned hardware = std::thread::hardware_concurrency();
    return hardware < 2 ? 1 : hardware - 1;
}

std::unordered_map<int32_t, std::future<AIJobResult>>& aiJobs() {
    static std::unordered_map<int32_t, std::future<AIJobResult>> jobs;
    return jobs;
}

std::mutex& aiJobsMutex() {
    static std::mutex mutex;
    return mutex;
}

std::atomic<int32_t>& aiNextJobId() {
    static std::atomic<int32_t> next{1};
    return next;
}

AIThreadPool& aiThreadPool() {
    static AIThreadPool pool(aiDefaultThreadCount());
    return pool;
}

int32_t aiSubmitJob(AIRequest request) {
    // The table and its mutex exist before the pool, so they outlive it at exit.
    std::mutex& mutex = aiJobsMutex();
    auto& jobs = aiJobs();
    const int32_t id = aiNextJobId().fetch_add(1);
    std::future<AIJobResult> future = aiThreadPool().submit(
        [request = std::move(request)]() mutable { return aiExecuteRequest(std::move(request)); });
    std::lock_guard<std::mutex> lock(mutex);
    jobs[id] = std::move(future);
    return id;
}

AIJobState aiCheckJob(int32_t id, AIJobResult& result) {
    std::future<AIJobResult> future;
    {
        std::lock_guard<std::mutex> lock(aiJobsMutex());
        auto& jobs = aiJobs();
        const auto entry = jobs.find(id);
        if (entry == jobs.end()) return AIJobState::Unknown;
        if (entry->second.wait_for(std::chrono::seconds(0)) != std::future_status::ready) return AIJobState::Running;
        future = std::move(entry->second);
        jobs.erase(entry);
    }
    // Ready, so this does not wait.
    try {
        result = future.get();
    } catch (const std::exception& e) {
        result = AIJobResult{};
        result.error = e.what();
    }
    return AIJobState::Finished;
}

}  // namespace orvane
