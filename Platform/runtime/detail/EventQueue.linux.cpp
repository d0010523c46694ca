#include <Platform/runtime/detail/EventQueue.h>

#include <Platform/base/detail/SystemCall.h>
#include <Platform/runtime/detail/Poller.h>

#include <algorithm>
#include <array>

#include <sys/epoll.h>
#include <sys/eventfd.h>

namespace Platform::detail {

EventQueue::EventQueue()
    : queue_(systemCall(SystemCall::watch, [] { return ::epoll_create1(EPOLL_CLOEXEC); })),
      bell_(
          systemCall(SystemCall::watch, [] { return ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); })) {
    epoll_event event{};
    event.events = EPOLLIN;
    systemCall(SystemCall::watch,
               [&] { return ::epoll_ctl(queue_.get(), EPOLL_CTL_ADD, bell_.get(), &event); });
}

void EventQueue::add(Watch& watch, bool isKnown) {
    epoll_event event{};
    event.events = watch.event() == WatchEvent::writable ? EPOLLOUT : EPOLLIN;
    event.events |= EPOLLONESHOT;
    event.data.ptr = &watch;
    const int operation = isKnown ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
    systemCall(SystemCall::watch,
               [&] { return ::epoll_ctl(queue_.get(), operation, watch.subject(), &event); });
}

void EventQueue::remove(Watch& watch) noexcept {
    ::epoll_ctl(queue_.get(), EPOLL_CTL_DEL, watch.subject(), nullptr);
}

std::size_t EventQueue::take(std::span<Watch*> watches) noexcept {
    std::array<epoll_event, 64> events;
    const auto most = static_cast<int>(std::min(events.size(), watches.size()));
    const int count = ::epoll_wait(queue_.get(), events.data(), most, 0);
    for (int i = 0; i < count; ++i) {
        const auto index = static_cast<std::size_t>(i);
        watches[index] = static_cast<Watch*>(events[index].data.ptr);
        if (!watches[index]) {
            eventfd_t rings = 0;
            ::eventfd_read(bell_.get(), &rings);
        }
    }
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

void EventQueue::ringBell() noexcept {
    ::eventfd_write(bell_.get(), 1);
}

} // namespace Platform::detail
