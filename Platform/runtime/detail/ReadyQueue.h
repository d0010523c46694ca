#pragma once

#include <Platform/runtime/detail/TaskContext.h>

#include <array>
#include <bit>
#include <cstddef>

namespace Platform::detail {

/// The classes of urgency that the executors tell apart, from 0 on: background, utility, default,
/// user-initiated. A priority without a class of its own is served as default.
constexpr int urgencyOf(TaskPriority priority) noexcept {
    switch (priority) {
    case TaskPriority::background:
        return 0;
    case TaskPriority::utility:
        return 1;
    case TaskPriority::userInitiated:
        return 3;
    default:
        return 2;
    }
}

/// Tasks that are ready to run: the most urgent first, first in first out among equals. Allocates
/// nothing, a task stands in one queue at most. Not synchronised.
class ReadyQueue {
public:
    bool empty() const noexcept { return occupied_ == 0; }
    std::size_t size() const noexcept { return size_; }

    /// Grows with urgency; -1 when empty. Comparable with `levelOf`.
    int topLevel() const noexcept { return static_cast<int>(std::bit_width(occupied_)) - 1; }

    static int levelOf(const TaskContext& task) noexcept { return urgencyOf(task.priority()); }

    void push(TaskContext& task) noexcept {
        const int level = levelOf(task);
        List& list = lists_[static_cast<std::size_t>(level)];
        task.nextReady_ = nullptr;
        (list.last ? list.last->nextReady_ : list.first) = &task;
        list.last = &task;
        occupied_ |= 1u << level;
        ++size_;
    }

    /// The next task, or null.
    TaskContext* pop() noexcept {
        if (empty()) return nullptr;
        List& list = lists_[static_cast<std::size_t>(topLevel())];
        TaskContext* const task = list.first;
        list.first = task->nextReady_;
        if (!list.first) {
            list.last = nullptr;
            occupied_ &= ~(1u << topLevel());
        }
        --size_;
        return task;
    }

private:
    struct List {
        TaskContext* first = nullptr;
        TaskContext* last = nullptr;
    };
    std::array<List, 4> lists_;
    unsigned occupied_ = 0; ///< A bit for each level that has tasks.
    std::size_t size_ = 0;
};

} // namespace Platform::detail
