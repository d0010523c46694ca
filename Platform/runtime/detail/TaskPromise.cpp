#include <Platform/runtime/detail/TaskPromise.h>

#include <stdexcept>

namespace Platform::detail {

void PromiseBase::requireAwaitable(const PromiseBase* promise) {
    if (!promise) throw std::logic_error("Task: an empty task was awaited");
    if (promise->context_) throw std::logic_error("Task: a task was awaited twice");
}

} // namespace Platform::detail
