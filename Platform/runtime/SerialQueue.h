#pragma once

#include <Platform/base/Export.h>

#include <memory>
#include <utility>

namespace Platform {

namespace detail {

/// A piece of work on a serial queue.
class PLATFORM_EXPORT SerialWork {
public:
    SerialWork() = default;
    SerialWork(const SerialWork&) = delete;
    SerialWork& operator=(const SerialWork&) = delete;
    virtual ~SerialWork() = default;

    virtual void run() noexcept = 0;

private:
    friend class SerialQueueState;
    std::unique_ptr<SerialWork> next_;
};

class SerialQueueState;

} // namespace detail

/// Runs blocking work off the cooperative pool: one piece at a time, in the order in which it was
/// submitted.
///
/// An idle queue costs no thread. A queue that has work runs it on a thread of the process's
/// elastic pool of blocking threads, named after the queue meanwhile and with 8 MiB of stack. Work
/// that was submitted is run also when the queue object goes before.
class PLATFORM_EXPORT SerialQueue {
public:
    /// `label` must live as long as the process (a literal).
    explicit SerialQueue(const char* label);
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;
    ~SerialQueue();

    /// Has `work()` called on the queue, and `work` destroyed there. `work` may block; it must not
    /// throw. From any thread; does not block. Throws std::bad_alloc, or std::system_error when the
    /// system has no thread to give; the work is destroyed then, without having been called.
    template <class F>
    void submit(F work) {
        class Call final : public detail::SerialWork {
        public:
            explicit Call(F&& f) : f_(std::move(f)) {}
            void run() noexcept override { f_(); }

        private:
            F f_;
        };
        add(std::make_unique<Call>(std::move(work)));
    }

private:
    void add(std::unique_ptr<detail::SerialWork> work);

    std::shared_ptr<detail::SerialQueueState> state_;
};

} // namespace Platform
