#include <Platform/runtime/SerialQueue.h>

#include <Platform/runtime/detail/BlockingPool.h>

#include <mutex>
#include <utility>

namespace Platform {

namespace detail {

/// The queue's work, and the job that runs it: on the blocking pool at most once at a time.
class SerialQueueState final : public BlockingJob,
                               public std::enable_shared_from_this<SerialQueueState> {
public:
    explicit SerialQueueState(const char* label) noexcept : label_(label) {}

    void add(std::unique_ptr<SerialWork> work) {
        const std::lock_guard guard(mutex_);
        if (!serving_) {
            BlockingPool::shared().submit(*this);
            serving_ = shared_from_this();
        }
        SerialWork* const added = work.get();
        (last_ ? last_->next_ : first_) = std::move(work);
        last_ = added;
    }

private:
    void run() noexcept override {
        while (const std::unique_ptr<SerialWork> work = take()) work->run();
    }

    const char* label() const noexcept override { return label_; }

    /// The next piece of work; with none left, the queue is no longer served.
    std::unique_ptr<SerialWork> take() noexcept {
        std::shared_ptr<SerialQueueState> self; // goes after the lock: it may be the last
        const std::lock_guard guard(mutex_);
        std::unique_ptr<SerialWork> work = std::move(first_);
        if (work) {
            first_ = std::move(work->next_);
            if (!first_) last_ = nullptr;
        } else {
            self = std::move(serving_);
        }
        return work;
    }

    const char* label_;
    std::mutex mutex_;
    std::unique_ptr<SerialWork> first_;
    SerialWork* last_ = nullptr;
    std::shared_ptr<SerialQueueState> serving_; ///< Itself, while it is being served.
};

} // namespace detail

SerialQueue::SerialQueue(const char* label)
    : state_(std::make_shared<detail::SerialQueueState>(label)) {}

SerialQueue::~SerialQueue() = default;

void SerialQueue::add(std::unique_ptr<detail::SerialWork> work) {
    state_->add(std::move(work));
}

} // namespace Platform
