#include "core/ledger/internal/serial_queue.hpp"

#include <pthread.h>

namespace orvane::ledger::internal {

SerialQueue::SerialQueue(std::string label) : label_(std::move(label)), worker_([this] { run(); }) {}

SerialQueue::~SerialQueue() {
    {
        std::lock_guard guard(lock_);
        stopping_ = true;
    }
    ready_.notify_one();
    if (worker_.joinable()) worker_.join();
}

void SerialQueue::async(std::function<void()> task) {
    post([task = std::move(task)] {
        try {
            task();
        } catch (...) {
            // Nobody waits for an asynchronous task, so there is no one to tell.
        }
    });
}

void SerialQueue::flush() {
    sync([] {});
}

void SerialQueue::post(std::function<void()> task) {
    {
        std::lock_guard guard(lock_);
        tasks_.push_back(std::move(task));
    }
    ready_.notify_one();
}

void SerialQueue::run() {
#ifdef __linux__
    // The label shows in debuggers and `top -H`; the kernel keeps at most 15 bytes of it.
    pthread_setname_np(pthread_self(), label_.substr(0, 15).c_str());
#endif
    for (;;) {
        std::function<void()> task;
        {
            std::unique_lock guard(lock_);
            ready_.wait(guard, [this] { return stopping_ || !tasks_.empty(); });
            if (tasks_.empty()) return;  // stopping, and nothing left to run
            task = std::move(tasks_.front());
            tasks_.pop_front();
        }
        task();
    }
}

}  // namespace orvane::ledger::internal
