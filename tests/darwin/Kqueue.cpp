#include "Kqueue.h"
#include "include/sys/event.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <climits>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

// The emulation replaces close and waitid for the code under test. The queues make the system calls
// themselves: a replaced close would take the registry's lock again.
void closeDirectly(int descriptor) noexcept {
    ::syscall(SYS_close, descriptor);
}

/// A descriptor that only a queue knows.
class Inner {
    int number_ = -1;

public:
    Inner() = default;
    explicit Inner(int number) noexcept : number_(number) {}
    Inner(Inner&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Inner& operator=(Inner&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Inner() {
        if (number_ != -1) closeDirectly(number_);
    }

    int get() const noexcept { return number_; }
    int release() noexcept { return std::exchange(number_, -1); }
    explicit operator bool() const noexcept { return number_ != -1; }
};

bool isReadable(int descriptor) noexcept {
    pollfd waiting{descriptor, POLLIN, 0};
    const timespec atOnce{};
    return ::ppoll(&waiting, 1, &atOnce, nullptr) == 1;
}

Inner makeTimer() noexcept {
    return Inner(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
}

void setTimer(const Inner& timer, nanoseconds first, nanoseconds period) noexcept {
    const auto toTimespec = [](nanoseconds time) {
        return timespec{static_cast<time_t>(time / 1s), static_cast<long>((time % 1s).count())};
    };
    // Zero would disarm the timer; macOS's fires at once.
    const itimerspec times{toTimespec(period), toTimespec(std::max(first, 1ns))};
    ::timerfd_settime(timer.get(), 0, &times, nullptr);
}

/// Whether another process traces the process, which may be dead. The process is named twice,
/// because a process that was reaped may have left its id to another one.
bool isTraced(const Inner& process, std::uintptr_t id) noexcept {
    std::array<char, 32> path{"/proc/"};
    char* const end = std::to_chars(path.data() + 6, path.data() + 20, id).ptr;
    std::string_view("/status").copy(end, 7);
    const Inner file(::open(path.data(), O_RDONLY | O_CLOEXEC));
    std::array<char, 1024> content;
    const ssize_t size = file ? ::read(file.get(), content.data(), content.size()) : 0;
    const std::string_view status(content.data(), static_cast<std::size_t>(std::max(size, 0L)));
    constexpr std::string_view label = "\nTracerPid:\t";
    const auto position = status.find(label);
    if (position == status.npos) return false;
    pid_t tracer = 0;
    std::from_chars(status.data() + position + label.size(), status.data() + status.size(), tracer);
    if (tracer == 0 || tracer == ::getpid()) return false;
    return ::syscall(SYS_pidfd_send_signal, process.get(), 0, nullptr, 0) == 0 || errno == EPERM;
}

/// As from `wait`; 0 if the process was reaped already or is no child.
int waitStatusOf(const Inner& process) noexcept {
    siginfo_t info{};
    ::syscall(SYS_waitid, P_PIDFD, process.get(), &info, WEXITED | WNOHANG | WNOWAIT, nullptr);
    if (info.si_code == CLD_EXITED) return W_EXITCODE(info.si_status, 0);
    return info.si_status | (info.si_code == CLD_DUMPED ? WCOREFLAG : 0);
}

/// Which descriptors a queue may know. It keeps the close of the others cheap. High ones share the
/// last mark, which stays set.
constinit std::array<std::atomic<bool>, 65536> marks{};

std::size_t markOf(int descriptor) noexcept {
    return std::min(static_cast<std::size_t>(descriptor), marks.size() - 1);
}

struct Knote {
    struct kevent event; ///< As registered, and as delivered but for what has happened.
    std::uint64_t serial;
    Inner source; ///< Becomes readable. Empty if the event's ident is a descriptor.
    bool isHeldBack = false;

    bool isOfDescriptor() const noexcept {
        return event.filter == EVFILT_READ || event.filter == EVFILT_WRITE;
    }
    int descriptor() const noexcept {
        return isOfDescriptor() ? static_cast<int>(event.ident) : source.get();
    }
};

/// The knotes of one queue. The queue's descriptor is an epoll descriptor, which the caller of
/// `kqueue` closes. Readers and sources are in it, and a second epoll with the writers: an epoll
/// holds a descriptor only once.
class Queue {
    enum class Outcome { delivered, heldBack, unknown };
    using Key = std::pair<int, std::uintptr_t>; ///< Filter and ident.

    static constexpr std::uint64_t writersSerial = 0;
    static constexpr std::uint64_t recheckSerial = 1;

    const int number_;
    const Inner writers_;
    const Inner recheck_; ///< Running while a knote is held back.
    Inner spareTimer_;    ///< A queue with one timer has the same descriptors as a queue without.
    std::map<Key, Knote> knotes_;
    std::unordered_map<std::uint64_t, Knote*> bySerial_;
    std::uint64_t lastSerial_ = recheckSerial;
    bool isClosed_ = false;

    int epollOf(const Knote& knote) const noexcept {
        return knote.event.filter == EVFILT_WRITE ? writers_.get() : number_;
    }

    int control(int operation, const Knote& knote) const noexcept {
        epoll_event event{};
        event.data.u64 = knote.serial;
        event.events = knote.event.filter == EVFILT_WRITE ? EPOLLOUT : EPOLLIN | EPOLLRDHUP;
        if (knote.isOfDescriptor() && (knote.event.flags & EV_CLEAR)) event.events |= EPOLLET;
        return ::epoll_ctl(epollOf(knote), operation, knote.descriptor(), &event) ? errno : 0;
    }

    void erase(std::map<Key, Knote>::iterator position) noexcept {
        // The epoll forgets a closed descriptor only once no copy of it is open.
        control(EPOLL_CTL_DEL, position->second);
        if (position->second.event.filter == EVFILT_TIMER && !spareTimer_)
            spareTimer_ = std::move(position->second.source);
        bySerial_.erase(position->second.serial);
        knotes_.erase(position);
    }

    static void startTimer(const Knote& knote) noexcept {
        const auto time =
            std::chrono::milliseconds(std::clamp(knote.event.data, 0L, LONG_MAX / 1'000'000));
        setTimer(knote.source, time, knote.event.flags & EV_ONESHOT ? 0ms : time);
    }

    int add(const struct kevent& change) {
        Knote knote{change, ++lastSerial_, Inner{}};
        switch (change.filter) {
        case EVFILT_READ:
        case EVFILT_WRITE:
            // A regular file fails here with EPERM. macOS accepts it.
            marks[markOf(knote.descriptor())] = true;
            break;
        case EVFILT_PROC:
            if (change.fflags != NOTE_EXIT) return EINVAL;
            knote.source = Inner(static_cast<int>(::syscall(SYS_pidfd_open, change.ident, 0)));
            if (!knote.source) return errno == EINVAL ? ESRCH : errno;
            if (isReadable(knote.source.get())) return ESRCH;
            knote.event.flags |= EV_ONESHOT;
            break;
        case EVFILT_TIMER:
            if (change.fflags != 0) return EINVAL;
            knote.source = spareTimer_ ? std::move(spareTimer_) : makeTimer();
            if (!knote.source) return errno;
            startTimer(knote);
            break;
        case EVFILT_USER:
            knote.source =
                Inner(::eventfd(change.fflags & NOTE_TRIGGER ? 1 : 0, EFD_CLOEXEC | EFD_NONBLOCK));
            if (!knote.source) return errno;
            break;
        default:
            return EINVAL;
        }
        const auto position =
            knotes_.emplace(Key(change.filter, change.ident), std::move(knote)).first;
        bySerial_.emplace(position->second.serial, &position->second);
        const int error = control(EPOLL_CTL_ADD, position->second);
        if (error != 0) erase(position);
        return error;
    }

    int modify(Knote& knote, const struct kevent& change) noexcept {
        if (change.flags & EV_ADD) {
            knote.event.udata = change.udata;
            knote.event.flags = change.flags;
            if (change.filter == EVFILT_PROC) knote.event.flags |= EV_ONESHOT;
        }
        if (change.filter == EVFILT_USER && (change.fflags & NOTE_TRIGGER))
            ::eventfd_write(knote.source.get(), 1);
        if (!(change.flags & EV_ADD)) return 0;
        if (change.filter == EVFILT_TIMER) {
            // This also forgets an expiry that was not taken.
            knote.event.data = change.data;
            startTimer(knote);
        }
        return knote.isOfDescriptor() ? control(EPOLL_CTL_MOD, knote) : 0;
    }

    Outcome deliver(const epoll_event& ready, struct kevent& event) noexcept {
        const auto found = bySerial_.find(ready.data.u64);
        if (found == bySerial_.end()) return Outcome::unknown;
        Knote& knote = *found->second;
        event = knote.event;
        eventfd_t count = 0;
        switch (knote.event.filter) {
        case EVFILT_READ: {
            // Linux reports an error of a socket only once, to whoever asks first. So it is left to
            // the code under test, and fflags stays 0.
            int bytes = 0;
            const bool hasCount = ::ioctl(knote.descriptor(), FIONREAD, &bytes) == 0;
            // A listener and a queue have no bytes: at least one connection or event is there.
            event.data = hasCount ? bytes : 1;
            event.fflags = 0;
            if (ready.events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) event.flags |= EV_EOF;
            break;
        }
        case EVFILT_WRITE:
            // macOS asks for 512 free bytes of a pipe, Linux for a free page: close enough. 512 is
            // what fits at least.
            event.data = ready.events & EPOLLOUT ? 512 : 0;
            event.fflags = 0;
            if (ready.events & (EPOLLHUP | EPOLLERR)) event.flags |= EV_EOF;
            break;
        case EVFILT_PROC:
            if (isTraced(knote.source, knote.event.ident)) {
                control(EPOLL_CTL_DEL, knote);
                knote.isHeldBack = true;
                setTimer(recheck_, 2ms, 0ms);
                return Outcome::heldBack;
            }
            event.data = waitStatusOf(knote.source);
            event.flags |= EV_EOF;
            break;
        case EVFILT_TIMER:
            if (::eventfd_read(knote.source.get(), &count) == -1) return Outcome::heldBack;
            event.data = static_cast<std::intptr_t>(count);
            break;
        case EVFILT_USER:
            event.fflags = 0;
            if (knote.event.flags & EV_CLEAR) ::eventfd_read(knote.source.get(), &count);
            break;
        }
        if (knote.event.flags & EV_ONESHOT)
            erase(knotes_.find(Key(knote.event.filter, knote.event.ident)));
        return Outcome::delivered;
    }

    void recheck() noexcept {
        eventfd_t count = 0;
        ::eventfd_read(recheck_.get(), &count);
        for (auto& [key, knote] : knotes_) {
            if (!knote.isHeldBack) continue;
            if (isTraced(knote.source, knote.event.ident)) {
                setTimer(recheck_, 2ms, 0ms);
            } else {
                knote.isHeldBack = false;
                control(EPOLL_CTL_ADD, knote);
            }
        }
    }

public:
    std::mutex mutex; ///< Held by the caller of any function below.

    explicit Queue(int number)
        : number_(number), writers_(::epoll_create1(EPOLL_CLOEXEC)), recheck_(makeTimer()),
          spareTimer_(makeTimer()) {}

    /// 0 or an error's number.
    int open() noexcept {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.u64 = writersSerial;
        if (::epoll_ctl(number_, EPOLL_CTL_ADD, writers_.get(), &event) == -1) return errno;
        event.data.u64 = recheckSerial;
        return ::epoll_ctl(number_, EPOLL_CTL_ADD, recheck_.get(), &event) == -1 ? errno : 0;
    }

    bool isClosed() const noexcept { return isClosed_; }

    /// 0 or an error's number.
    int apply(const struct kevent& change) {
        constexpr int understood = EV_ADD | EV_DELETE | EV_ONESHOT | EV_CLEAR;
        if (change.flags & ~understood) return EINVAL;
        if ((change.filter == EVFILT_READ || change.filter == EVFILT_WRITE) &&
            (change.ident > INT_MAX || ::fcntl(static_cast<int>(change.ident), F_GETFD) == -1))
            return EBADF;
        const auto found = knotes_.find(Key(change.filter, change.ident));
        if (found == knotes_.end()) return change.flags & EV_ADD ? add(change) : ENOENT;
        if (!(change.flags & EV_DELETE)) return modify(found->second, change);
        erase(found);
        return 0;
    }

    /// Does not block. -1 with `errno` set if the queue's descriptor is none.
    int take(struct kevent* events, int room) noexcept {
        std::array<epoll_event, 64> ready;
        room = std::min(room, static_cast<int>(ready.size()));
        for (;;) {
            int taken = 0;
            bool hasWriters = false;
            bool isOver = true;
            const auto takeFrom = [&](int epoll) {
                const int count = ::epoll_wait(epoll, ready.data(), room - taken, 0);
                for (int i = 0; i < count; ++i) {
                    const epoll_event& event = ready[static_cast<std::size_t>(i)];
                    if (event.data.u64 == writersSerial) {
                        hasWriters = true;
                    } else if (event.data.u64 == recheckSerial) {
                        recheck();
                        isOver = false;
                    } else {
                        const Outcome outcome = deliver(event, events[taken]);
                        if (outcome == Outcome::delivered) ++taken;
                        if (outcome == Outcome::heldBack) isOver = false;
                    }
                }
                return count;
            };
            if (takeFrom(number_) == -1) return -1;
            // The second epoll has used one place of the room itself, so a place is left.
            if (hasWriters) takeFrom(writers_.get());
            // A knote that is held back has left the epoll. It may have hidden another event.
            if (taken != 0 || isOver) return taken;
        }
    }

    void drop(int descriptor) noexcept {
        for (const int filter : {EVFILT_READ, EVFILT_WRITE}) {
            const auto found = knotes_.find(Key(filter, static_cast<std::uintptr_t>(descriptor)));
            if (found != knotes_.end()) erase(found);
        }
    }

    void close() noexcept {
        while (!knotes_.empty()) erase(knotes_.begin());
        isClosed_ = true;
        // Wakes up the threads that block in kevent.
        setTimer(recheck_, 1ns, 0ms);
    }
};

/// All queues of the process. It is never destroyed, because destructors of static objects close.
class Registry {
    std::mutex mutex_; ///< Comes before a queue's mutex.
    std::map<int, std::shared_ptr<Queue>> queues_;
    std::list<std::map<int, std::shared_ptr<Queue>>> parents_;
    std::atomic<pid_t> owner_ = ::getpid();

    /// A child of fork has no queues on macOS. Here it shares them with its parent, so it must not
    /// change them; and a thread that is gone may have been changing them.
    void forget() {
        owner_ = ::getpid();
        for (const auto& [number, queue] : queues_) closeDirectly(number);
        parents_.push_back(std::exchange(queues_, {}));
        mutex_.unlock();
    }

public:
    Registry() {
        ::pthread_atfork([] { get().mutex_.lock(); }, [] { get().mutex_.unlock(); },
                         [] { get().forget(); });
    }

    static Registry& get() {
        static Registry& registry = *new Registry;
        return registry;
    }

    void insert(int number, std::shared_ptr<Queue> queue) {
        const std::lock_guard lock(mutex_);
        queues_.insert_or_assign(number, std::move(queue));
        marks[markOf(number)] = true;
    }

    std::shared_ptr<Queue> find(int number) {
        const std::lock_guard lock(mutex_);
        const auto found = queues_.find(number);
        return found == queues_.end() ? nullptr : found->second;
    }

    void drop(int descriptor) noexcept {
        // A child of vfork shares this memory, but not its descriptors.
        if (::getpid() != owner_) return;
        const std::lock_guard lock(mutex_);
        if (markOf(descriptor) < marks.size() - 1) marks[markOf(descriptor)] = false;
        const auto found = queues_.find(descriptor);
        if (found != queues_.end()) {
            const auto queue = std::move(found->second);
            queues_.erase(found);
            const std::lock_guard queueLock(queue->mutex);
            queue->close();
        }
        for (const auto& [number, queue] : queues_) {
            const std::lock_guard queueLock(queue->mutex);
            queue->drop(descriptor);
        }
    }
};

int fail(int error) noexcept {
    errno = error;
    return -1;
}

} // namespace

void DarwinEmulation::descriptorCloses(int descriptor) noexcept {
    if (!marks[markOf(descriptor)]) return;
    const int error = errno;
    Registry::get().drop(descriptor);
    errno = error;
}

extern "C" int kqueue() {
    Inner number(::epoll_create1(EPOLL_CLOEXEC));
    if (!number) return -1;
    auto queue = std::make_shared<Queue>(number.get());
    if (const int error = queue->open()) return fail(error);
    Registry::get().insert(number.get(), std::move(queue));
    return number.release();
}

extern "C" int kevent(int number, const struct kevent* changes, int changeCount,
                      struct kevent* events, int room, const timespec* timeout) {
    using Clock = std::chrono::steady_clock;
    const auto queue = Registry::get().find(number);
    if (!queue) return fail(EBADF);
    std::optional<Clock::time_point> deadline;
    if (timeout) {
        if (timeout->tv_sec < 0 || timeout->tv_nsec < 0 || timeout->tv_nsec >= 1'000'000'000)
            return fail(EINVAL);
        const std::chrono::seconds longest = 24h * 365;
        deadline = Clock::now() + std::min(std::chrono::seconds(timeout->tv_sec), longest) +
                   nanoseconds(timeout->tv_nsec);
    }
    std::unique_lock lock(queue->mutex);
    int errors = 0;
    for (int i = 0; i < changeCount; ++i) {
        const int error = queue->isClosed() ? EBADF : queue->apply(changes[i]);
        if (error == 0) continue;
        if (errors == room) return fail(error);
        events[errors] = changes[i];
        events[errors].flags |= EV_ERROR;
        events[errors++].data = error;
    }
    if (errors != 0 || room == 0) return errors;
    for (;;) {
        if (queue->isClosed()) return fail(EBADF);
        const int taken = queue->take(events, room);
        if (taken != 0) return taken;
        lock.unlock();
        timespec rest{};
        if (deadline) {
            const auto left = std::chrono::ceil<nanoseconds>(*deadline - Clock::now());
            if (left <= 0ns) return 0;
            rest = {static_cast<time_t>(left / 1s), static_cast<long>((left % 1s).count())};
        }
        pollfd waiting{number, POLLIN, 0};
        if (::ppoll(&waiting, 1, deadline ? &rest : nullptr, nullptr) == -1) return -1;
        lock.lock();
    }
}
