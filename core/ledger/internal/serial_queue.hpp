// A serial queue: one worker thread runs the tasks one after the other, in the order given.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>

namespace orvane::ledger::internal {

class SerialQueue {
  public:
    explicit SerialQueue(std::string label);
    // Runs what is still queued, then ends the worker.
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    const std::string& label() const { return label_; }

    // Queues `task` and returns at once. A task that throws is dropped: nobody waits for it.
    void async(std::function<void()> task);

    // Runs `task` on the queue and waits for its result; what it throws is thrown here. Called
    // from a task of this queue it runs in place, since waiting there would wait for itself.
    template <typename F>
    auto sync(F&& task) -> std::invoke_result_t<F&> {
        using R = std::invoke_result_t<F&>;
        if (isCurrent()) return task();
        std::packaged_task<R()> packaged(std::forward<F>(task));
        auto result = packaged.get_future();
        post([&packaged] { packaged(); });
        return result.get();
    }

    // Returns once every task queued before the call has run.
    void flush();

    // Whether the calling thread is this queue's worker.
    bool isCurrent() const { return std::this_thread::get_id() == worker_.get_id(); }

  private:
    void post(std::function<void()> task);
    void run();

    std::string label_;
    std::mutex lock_;
    std::condition_variable ready_;
    std::deque<std::function<void()>> tasks_;
    bool stopping_ = false;
    std::thread worker_;  // last: it starts once everything above exists
};

}  // namespace orvane::ledger::internal
