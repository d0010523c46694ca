#include <Platform/async/AsyncQueue.h>

#include <algorithm>
#include <cstddef>

namespace Platform {

namespace {

constexpr int defaultMaxConcurrentTasks = 64;

Task<> allFinished(std::shared_ptr<detail::QueueState> state) {
    detail::Operation<detail::QueueState::AllFinished, detail::QueueState> wait(*state);
    co_await wait;
}

} // namespace

AsyncQueue::AsyncQueue(std::optional<int> maxConcurrentTasks, TaskPriority taskPriority)
    : state_(std::make_shared<detail::QueueState>(static_cast<std::size_t>(
          std::max(1, maxConcurrentTasks.value_or(defaultMaxConcurrentTasks))))),
      taskPriority_(taskPriority) {}

Task<> AsyncQueue::waitUntilAllTasksAreFinished() const {
    return allFinished(state_);
}

} // namespace Platform
