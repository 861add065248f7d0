// The background jobs of the text generator: a fixed pool of worker threads fed from one queue,
// and a process-wide table from job id to the future of its result. At static destruction the
// pool runs out its queue and joins its workers, so the process ends after every submitted job.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "ai/Requests.h"

namespace orvane {

class AIThreadPool {
public:
    // 0 workers becomes 1.
    explicit AIThreadPool(size_t threadCount);
    // Sets `stopping`, lets the workers finish every queued task, and joins them.
    ~AIThreadPool();
    AIThreadPool(const AIThreadPool&) = delete;
    AIThreadPool& operator=(const AIThreadPool&) = delete;

    size_t size() const { return workers.size(); }

    template <typename F>
    std::future<std::invoke_result_t<F>> submit(F function) {
        // Shared, since the queue holds copyable callables and a packaged task only moves.
        auto task = std::make_shared<std::packaged_task<std::invoke_result_t<F>()>>(std::move(function));
        auto future = task->get_future();
        {
            std::lock_guard<std::mutex> lock(mutex);
            tasks.emplace_back([task] { (*task)(); });
        }
        wake.notify_one();
        return future;
    }

private:
    void work();

    std::vector<std::thread> workers;
    std::deque<std::function<void()>> tasks;
    std::mutex mutex;
    std::condition_variable wake;
    bool stopping = false;
};

// Hardware concurrency minus 1, at least 1: the script thread keeps a core.
size_t aiDefaultThreadCount();

std::unordered_map<int32_t, std::future<AIJobResult>>& aiJobs();
std::mutex& aiJobsMutex();
std::atomic<int32_t>& aiNextJobId();
AIThreadPool& aiThreadPool();

// Queues the request on the pool and files its future; the id, counting from 1.
int32_t aiSubmitJob(AIRequest request);

enum class AIJobState { Unknown, Running, Finished };
// Never blocks. A finished job leaves the table here and its result goes to `result`, so it is
// delivered once; a job whose run threw comes back as `ok` false with the message.
AIJobState aiCheckJob(int32_t id, AIJobResult& result);

}  // namespace orvane
