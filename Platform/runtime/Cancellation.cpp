#include <Platform/runtime/Cancellation.h>

#include <Platform/base/CancellationError.h>

namespace Platform {

bool isTaskCancelled() noexcept {
    const auto* const task = detail::TaskContext::current();
    return task && task->isCancelled();
}

void checkCancellation() {
    if (isTaskCancelled()) throw CancellationError();
}

TaskPriority currentTaskPriority() noexcept {
    const auto* const task = detail::TaskContext::current();
    return task ? task->priority() : TaskPriority::unspecified;
}

} // namespace Platform
