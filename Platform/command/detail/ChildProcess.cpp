#include <Platform/command/detail/ChildProcess.h>

#include <Platform/base/Errno.h>
#include <Platform/base/FileDescriptor.h>
#include <Platform/base/detail/SystemCall.h>
#include <Platform/command/detail/LaunchText.h>
#include <Platform/command/detail/ProcessLaunch.h>
#include <Platform/runtime/detail/Alarm.h>
#include <Platform/runtime/detail/LaunchGate.h>
#include <Platform/runtime/detail/Poller.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <utility>

#include <fcntl.h>
#include <sys/wait.h>

namespace Platform::detail {

/// What the handle and the watch for the end share. Each keeps it alive: the watch until the end.
class ChildState final : private Watch {
public:
    explicit ChildState(bool holdsId) noexcept : Watch(WatchEvent::processEnd), holds_(holdsId) {}
    ChildState(const ChildState&) = delete;
    ChildState& operator=(const ChildState&) = delete;
    ~ChildState() { cancel(); }

    int id() const noexcept { return process_.id; }

    /// Throws, with the process killed and collected, when its end cannot be watched for.
    void adopt(LaunchedProcess process, std::shared_ptr<ChildState> self) {
        process_ = std::move(process);
        setSubject(process_.subject());
        self_ = std::move(self);
        try {
            arm();
        } catch (...) {
            ::kill(id(), SIGKILL);
            collect(WEXITED);
            self_ = nullptr;
            throw;
        }
    }

    /// The handle has gone.
    void release() noexcept {
        const std::lock_guard guard(mutex_);
        observer_ = nullptr;
        if (std::exchange(holds_, false) && isNoted_ && !isGone_) collect(WEXITED);
    }

    bool isRunning() noexcept {
        const std::lock_guard guard(mutex_);
        if (isNoted_) return false;
        siginfo_t info{};
        if (askForEnd(WEXITED | WNOWAIT | WNOHANG, info) == 0) return info.si_pid == 0;
        // Collected by others; or a debugger has taken it over until it lets go (macOS).
        return ::kill(id(), 0) == 0 || errno == EPERM;
    }

    bool sendSignal(int number, bool toGroup) noexcept {
        const std::lock_guard guard(mutex_);
        if (toGroup ? isGone_ : isNoted_) return false;
        const pid_t target = toGroup ? -id() : id();
        return trySystemCall(SystemCall::kill, [&] { return ::kill(target, number); }) == 0;
    }

    bool observe(ProcessEndObserver& observer) noexcept {
        const std::lock_guard guard(mutex_);
        if (!isNoted_) observer_ = &observer;
        return !isNoted_;
    }

    bool stopObserving(ProcessEndObserver& observer) noexcept {
        std::unique_lock lock(mutex_);
        if (observer_ == &observer) {
            observer_ = nullptr;
            return true;
        }
        changed_.wait(lock, [&] { return told_ != &observer; });
        return false;
    }

    void wait() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return isNoted_; });
    }

    bool wait(std::chrono::milliseconds limit) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, limit, [this] { return isNoted_; });
    }

    int status() {
        const std::lock_guard guard(mutex_);
        if (error_ != 0) throw Errno(error_, "the end of a process");
        return status_;
    }

    std::optional<int> endingSignal() noexcept {
        const std::lock_guard guard(mutex_);
        return isNoted_ && wasKilled_ ? std::optional(status_) : std::nullopt;
    }

private:
    void ready() noexcept override {
        const std::shared_ptr<ChildState> self = std::move(self_);
        {
            const std::lock_guard guard(mutex_);
            // The process may be collected by others, who have no business with it, at any time:
            // all that is known then is that it has ended.
            const int options = holds_ ? WEXITED | WNOWAIT : WEXITED;
            if (!collect(options | WNOHANG)) {
                // A debugger looks at it, perhaps, and keeps its end from us; others are waited for
                // on this thread meanwhile.
                if (lookAgainLater(self)) return;
                collect(options);
            }
            process_.identity.reset();
            isNoted_ = true;
            told_ = std::exchange(observer_, nullptr);
            changed_.notify_all();
            if (!told_) return;
        }
        told_->processEnded();
        const std::lock_guard guard(mutex_);
        told_ = nullptr;
        changed_.notify_all();
    }

    /// Nothing more will be told of the end. False: there is no memory for that. With the lock
    /// held.
    bool lookAgainLater(const std::shared_ptr<ChildState>& self) noexcept {
        patience_ = std::min(2 * patience_, longestPatience);
        self_ = self;
        try {
            Alarm(patience_, [this] { ready(); }).detach();
            return true;
        } catch (...) {
            self_ = nullptr;
            return false;
        }
    }

    /// As waitid: 0, or -1 with `errno`. No process id in `info`: the end has not come.
    int askForEnd(int options, siginfo_t& info) const noexcept {
        return trySystemCall(SystemCall::wait, [&] {
            return ::waitid(P_PID, static_cast<id_t>(id()), &info, options);
        });
    }

    /// Asks for the end, and keeps what it was. False: it has not come. Only once the system has
    /// told of the end: before that, an error does not mean that there is nothing to collect.
    bool collect(int options) noexcept {
        siginfo_t info{};
        const int result = askForEnd(options, info);
        if (result == 0 && info.si_pid == 0) return false;
        if (result == 0) {
            wasKilled_ = info.si_code != CLD_EXITED;
            status_ = wasKilled_ ? info.si_status : info.si_status & 0xff; // macOS has all the bits
        } else {
            error_ = errno;
        }
        if (result == -1 || (options & WNOWAIT) == 0) isGone_ = true;
        return true;
    }

    static constexpr std::chrono::milliseconds longestPatience{64};

    std::mutex mutex_;
    std::condition_variable changed_;
    LaunchedProcess process_;
    std::chrono::milliseconds patience_{1};
    std::shared_ptr<ChildState> self_;       ///< While the end is watched for.
    ProcessEndObserver* observer_ = nullptr; ///< To be told.
    ProcessEndObserver* told_ = nullptr;     ///< Being told.
    int status_ = 0;
    bool wasKilled_ = false;
    int error_ = 0; ///< Why there is no status.
    bool holds_;
    bool isNoted_ = false; ///< The end was seen.
    bool isGone_ = false;  ///< The id is not ours any more.
};

namespace {

/// A host that throws its children's ends away would leave us without.
void requireEnds(const Launch& launch) {
    struct sigaction action{};
    ::sigaction(SIGCHLD, nullptr, &action);
    if (action.sa_handler == SIG_IGN || (action.sa_flags & SA_NOCLDWAIT) != 0) {
        throw Errno(ECHILD, launch.path + " (this process ignores SIGCHLD)");
    }
}

/// Duplicates a descriptor above the standard ones.
FileDescriptor lifted(int descriptor) {
    return FileDescriptor(
        systemCall(SystemCall::fcntl, [&] { return ::fcntl(descriptor, F_DUPFD_CLOEXEC, 3); }));
}

} // namespace

ChildProcess ChildProcess::launch(const Launch& launch) {
    requireEnds(launch);
    const LaunchVectors vectors(launch);
    LaunchFailure failure;
    try {
        FileDescriptor null;
        std::array<FileDescriptor, 3> copies;
        LaunchPlan plan{launch.path.c_str(),
                        vectors.arguments(),
                        vectors.environment(),
                        launch.workingDirectory ? launch.workingDirectory->c_str() : nullptr,
                        launch.descriptors,
                        launch.group};
        for (int& descriptor : plan.descriptors) {
            if (descriptor >= 0) continue;
            if (!null) {
                null = FileDescriptor(systemCall(
                    SystemCall::open, [] { return ::open("/dev/null", O_RDWR | O_CLOEXEC); }));
            }
            descriptor = null.get();
        }
        for (std::size_t i = 0; i < copies.size(); ++i) {
            if (plan.descriptors[i] > 2) continue;
            copies[i] = lifted(plan.descriptors[i]);
            plan.descriptors[i] = copies[i].get();
        }
        // What can run out is taken before there is a process.
        Poller::shared();
        auto state = std::make_shared<ChildState>(launch.holdsId);
        LaunchedProcess process;
        {
            const LaunchGate::Passage passage;
            process = launchProcess(plan, failure);
        }
        if (process.id != -1) {
            state->adopt(std::move(process), state);
            return ChildProcess(std::move(state));
        }
    } catch (const Errno& error) {
        throw Errno(error.number(), launch.path);
    }
    throw Errno(failure.number, describeFailure(launch, failure));
}

ChildProcess::ChildProcess(std::shared_ptr<ChildState> state) noexcept : state_(std::move(state)) {}

ChildProcess& ChildProcess::operator=(ChildProcess&& other) noexcept {
    const ChildProcess old = std::move(*this);
    state_ = std::move(other.state_);
    return *this;
}

ChildProcess::~ChildProcess() {
    if (state_) state_->release();
}

int ChildProcess::id() const noexcept {
    return state_->id();
}

bool ChildProcess::isRunning() const noexcept {
    return state_->isRunning();
}

bool ChildProcess::sendSignal(int number) const noexcept {
    return state_->sendSignal(number, false);
}

bool ChildProcess::sendSignalToGroup(int number) const noexcept {
    return state_->sendSignal(number, true);
}

bool ChildProcess::observeEnd(ProcessEndObserver& observer) const noexcept {
    return state_->observe(observer);
}

bool ChildProcess::stopObserving(ProcessEndObserver& observer) const noexcept {
    return state_->stopObserving(observer);
}

bool ChildProcess::waitForEnd(std::chrono::milliseconds limit) const {
    return state_->wait(limit);
}

void ChildProcess::waitForEnd() const {
    state_->wait();
}

int ChildProcess::status() const {
    return state_->status();
}

std::optional<int> ChildProcess::endingSignal() const noexcept {
    return state_->endingSignal();
}

} // namespace Platform::detail
