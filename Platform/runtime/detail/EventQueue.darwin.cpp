#include <Platform/runtime/detail/EventQueue.h>

#include <Platform/base/detail/SystemCall.h>
#include <Platform/runtime/detail/Poller.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>

#include <fcntl.h>
#include <sys/event.h>

namespace Platform::detail {

namespace {

struct kevent eventOf(Watch& watch, std::uint16_t action) noexcept {
    struct kevent event;
    const bool ofProcess = watch.event() == WatchEvent::processEnd;
    const std::int16_t filter = ofProcess                               ? EVFILT_PROC
                                : watch.event() == WatchEvent::readable ? EVFILT_READ
                                                                        : EVFILT_WRITE;
    EV_SET(&event, static_cast<std::uintptr_t>(watch.subject()), filter, action,
           ofProcess ? NOTE_EXIT : 0, 0, &watch);
    return event;
}

/// Stands for the end of a process that can not be watched for any more, since it has come.
struct kevent endedEventOf(Watch& watch, std::uint16_t action) noexcept {
    struct kevent event;
    EV_SET(&event, reinterpret_cast<std::uintptr_t>(&watch), EVFILT_USER, action, NOTE_TRIGGER, 0,
           &watch);
    return event;
}

constexpr std::uint16_t once = EV_ADD | EV_ONESHOT;

} // namespace

EventQueue::EventQueue() : queue_(systemCall(SystemCall::watch, [] { return ::kqueue(); })) {
    systemCall(SystemCall::fcntl, [&] { return ::fcntl(queue_.get(), F_SETFD, FD_CLOEXEC); });
    struct kevent bell;
    EV_SET(&bell, 0, EVFILT_USER, EV_ADD | EV_CLEAR, 0, 0, nullptr);
    systemCall(SystemCall::watch,
               [&] { return ::kevent(queue_.get(), &bell, 1, nullptr, 0, nullptr); });
}

void EventQueue::add(Watch& watch, bool) {
    const auto apply = [&](const struct kevent& event) {
        return trySystemCall(SystemCall::watch, [&] {
            return ::kevent(queue_.get(), &event, 1, nullptr, 0, nullptr);
        });
    };
    if (apply(eventOf(watch, once)) == 0) return;
    if (watch.event() != WatchEvent::processEnd || errno != ESRCH) throwErrno();
    struct kevent ended = endedEventOf(watch, once);
    ended.fflags = 0;
    const struct kevent trigger = endedEventOf(watch, 0);
    if (apply(ended) == -1 || apply(trigger) == -1) throwErrno();
}

void EventQueue::remove(Watch& watch) noexcept {
    // An event that was taken has removed itself: failures mean nothing.
    const struct kevent event = eventOf(watch, EV_DELETE);
    ::kevent(queue_.get(), &event, 1, nullptr, 0, nullptr);
    if (watch.event() != WatchEvent::processEnd) return;
    const struct kevent ended = endedEventOf(watch, EV_DELETE);
    ::kevent(queue_.get(), &ended, 1, nullptr, 0, nullptr);
}

std::size_t EventQueue::take(std::span<Watch*> watches) noexcept {
    std::array<struct kevent, 64> events;
    const auto most = static_cast<int>(std::min(events.size(), watches.size()));
    const timespec atOnce{};
    const int count = ::kevent(queue_.get(), nullptr, 0, events.data(), most, &atOnce);
    for (int i = 0; i < count; ++i) {
        const auto index = static_cast<std::size_t>(i);
        watches[index] = static_cast<Watch*>(events[index].udata);
    }
    return count > 0 ? static_cast<std::size_t>(count) : 0;
}

void EventQueue::ringBell() noexcept {
    struct kevent bell;
    EV_SET(&bell, 0, EVFILT_USER, 0, NOTE_TRIGGER, 0, nullptr);
    ::kevent(queue_.get(), &bell, 1, nullptr, 0, nullptr);
}

} // namespace Platform::detail
