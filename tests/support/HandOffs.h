#pragma once

#include <Platform/base/detail/LogSink.h>

#include <support/Testing.h>

namespace Platform::Testing {

inline bool isPipe(const std::string& path) {
    return std::filesystem::is_fifo(std::filesystem::symlink_status(path));
}

/// A temporary directory that is this test's alone, for as long as it lives.
class OwnTemporaryDirectory : public Scratch {
public:
    /// Where the library keeps its pipes.
    std::string pipeDirectory() const { return *this / "app.morvel.pkg.platform.fifo"; }

    std::ptrdiff_t pipes() const {
        using Entries = std::filesystem::directory_iterator;
        return std::distance(Entries(pipeDirectory()), Entries());
    }

private:
    const Variable variable_{"TMPDIR", *this / ""};
};

/// Takes the log's entries, as "label: error: …", for as long as it lives; one at a time.
class LogEntries {
public:
    LogEntries() : before_(detail::setLogSink(&add)) { take(); }
    ~LogEntries() { detail::setLogSink(before_); }

    /// The entries since the last call.
    std::vector<std::string> take() {
        const std::lock_guard guard(mutex_);
        return std::exchange(entries_, {});
    }

private:
    static void add(const char* label, std::string_view text) {
        const std::lock_guard guard(mutex_);
        entries_.push_back(std::string(label) + ": " + std::string(text));
    }

    static inline std::mutex mutex_;
    static inline std::vector<std::string> entries_;
    const detail::LogSink before_;
};

/// Tells when the last copy of its token has gone: a callback that captures one, and so the task
/// that keeps the callback.
class Ended {
public:
    /// To be called once.
    std::shared_ptr<void> token() {
        auto promise = std::make_shared<std::promise<void>>();
        future_ = promise->get_future();
        return {nullptr, [promise](void*) { promise->set_value(); }};
    }

    bool now() const { return isReady(std::chrono::seconds(0)); }
    bool soon() const { return isReady(std::chrono::seconds(30)); }

private:
    bool isReady(std::chrono::seconds limit) const {
        return future_.wait_for(limit) == std::future_status::ready;
    }

    std::future<void> future_;
};

/// Takes a moment without giving the processor away, which on a busy machine can cost milliseconds.
inline void spin(unsigned turns) {
    for (; turns > 0; --turns) std::atomic_signal_fence(std::memory_order_seq_cst);
}

/// Holds up every system call of the library, on whichever thread, for a random moment, and
/// interrupts some.
class RandomPauses {
public:
    RandomPauses() { detail::setSystemCallHook(&pause); }
    ~RandomPauses() { detail::setSystemCallHook(nullptr); }

    void seed(std::uint64_t seed) { state_ = seed << 32U; }

private:
    static int pause(SystemCall, std::size_t*) {
        std::uint64_t bits = state_.fetch_add(1) * 0x9E3779B97F4A7C15U;
        bits ^= bits >> 29U;
        bits *= 0xBF58476D1CE4E5B9U;
        spin((1U << (bits >> 32U) % 16U) / 2);
        if ((bits >> 40U) % 16U == 0) std::this_thread::yield();
        return (bits >> 44U) % 16U == 0 ? EINTR : 0;
    }

    static inline std::atomic<std::uint64_t> state_ = 0;
};

} // namespace Platform::Testing
