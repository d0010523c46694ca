#include <Platform/command/detail/Capturing.h>

#include <Platform/command/detail/BulkStream.h>
#include <Platform/runtime/Cancellation.h>

#include <algorithm>
#include <cstddef>
#include <exception>
#include <optional>
#include <utility>

namespace Platform::detail {

namespace {

// Most outputs are small, and room that is asked for stays with them.
constexpr std::size_t firstRead = 4096;

} // namespace

Capturing::Capturing(Cmd command, Cmd::Captured what, Cmd::Options options)
    : command_(std::move(command)), what_(what), options_(options) {}

Capturing::~Capturing() {
    for (const auto& forward : {command_.standardOutput, command_.standardError}) {
        if (forward) forward->close();
    }
}

Task<Cmd::Capture> Capturing::run() {
    run_ = std::make_unique<CommandRun>(command_, options_, true);
    auto running = withTaskGroup<>([this](TaskGroup<>& readers) { return runWith(&readers); });
    co_await running;
    const bool isComplete = run_->output()->reachedEnd() && run_->error()->reachedEnd();
    co_return Cmd::Capture{std::move(data_), isComplete};
}

Task<> Capturing::runWith(TaskGroup<>* readers) {
    const Use outputUse{what_ != Cmd::Captured::nothing, command_.mergeOutputIntoError};
    const Use errorUse{what_ == Cmd::Captured::outputAndError, true};
    try {
        readers->addTask([this, outputUse] {
            return collect(run_->output(), outputUse, command_.standardOutput);
        });
        readers->addTask(
            [this, errorUse] { return collect(run_->error(), errorUse, command_.standardError); });
        auto waiting = unexpectedStatus();
        const std::optional<std::int64_t> badStatus = co_await waiting;
        Alarm grace;
        if (options_.outputGrace) {
            grace = Alarm(*options_.outputGrace, [this] {
                for (const auto& end : {run_->output(), run_->error()}) end->endAfterWhatIsThere();
            });
        }
        auto ending = withTaskCancellationHandler([readers] { return readers->waitForAll(); },
                                                  [this]() noexcept { run_->closeStreams(); });
        co_await ending;
        checkCancellation();
        if (badStatus) throw Cmd::ExitError(*badStatus, saver_.text());
    } catch (...) {
        run_->terminate();
        run_->closeStreams(); // which is what the readers wait for
        throw;
    }
}

/// Waits for the process's end.
Task<std::optional<std::int64_t>> Capturing::unexpectedStatus() {
    try {
        auto waiting = run_->wait();
        co_await waiting;
    } catch (const Cmd::ExitError& error) {
        co_return error.status;
    }
    co_return std::nullopt;
}

Task<> Capturing::collect(std::shared_ptr<PipeEnd> end, Use use, Forward forward) {
    try {
        for (;;) {
            PipeEnd::Progress progress{};
            {
                Data copy;
                progress = take(*end, use, forward ? &copy : nullptr);
                if (!copy.empty()) {
                    try {
                        auto sending = forward->send(std::move(copy));
                        co_await sending;
                    } catch (const std::bad_alloc&) {
                        throw;
                    } catch (const std::exception&) { // nobody wants the rest
                        forward->close();
                        end->discard();
                    }
                }
            }
            if (progress == PipeEnd::Progress::ended) break;
            if (progress == PipeEnd::Progress::made) continue;
            auto ready = end->whenReady();
            co_await ready;
        }
    } catch (...) { // no memory
        run_->terminate();
        run_->closeStreams();
        throw;
    }
    if (forward) forward->close();
}

PipeEnd::Progress Capturing::take(PipeEnd& end, Use use, Data* copy) {
    const std::lock_guard guard(mutex_);
    Data& into = use.isKept ? data_ : passing_;
    if (!use.isKept) passing_.clear();
    const std::size_t before = into.size();
    const std::size_t most =
        use.isKept ? std::clamp(before, firstRead, widePipe) : PipeEnd::usualCapacity;
    const PipeEnd::Progress progress = end.read(into, most);
    const std::span<const std::byte> fresh = std::span<const std::byte>(into).subspan(before);
    if (use.isSaved) saver_.append(fresh);
    if (copy && !fresh.empty()) *copy = Data(fresh);
    return progress;
}

} // namespace Platform::detail
