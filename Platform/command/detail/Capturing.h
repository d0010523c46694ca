#pragma once

#include <Platform/command/detail/CommandRun.h>
#include <Platform/command/detail/PrefixSuffixSaver.h>
#include <Platform/runtime/TaskGroup.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>

namespace Platform::detail {

/// One run of a command whose output is collected.
class Capturing {
public:
    Capturing(Cmd command, Cmd::Captured what, Cmd::Options options);
    Capturing(const Capturing&) = delete;
    Capturing& operator=(const Capturing&) = delete;
    ~Capturing();

    /// To be called once; to be kept until it has ended.
    Task<Cmd::Capture> run();

private:
    /// What happens to the bytes of a stream.
    struct Use {
        bool isKept;
        bool isSaved; ///< For the error text.
    };
    using Forward = std::shared_ptr<Cmd::Channel>;

    Task<> runWith(TaskGroup<>* readers);
    Task<std::optional<std::int64_t>> unexpectedStatus();
    Task<> collect(std::shared_ptr<PipeEnd> end, Use use, Forward forward);
    PipeEnd::Progress take(PipeEnd& end, Use use, Data* copy);

    const Cmd command_;
    const Cmd::Captured what_;
    const Cmd::Options options_;
    std::unique_ptr<CommandRun> run_;

    std::mutex mutex_; ///< For what follows: both streams come here.
    Data data_;
    Data passing_; ///< What is not kept.
    prefixSuffixSaver saver_;
};

} // namespace Platform::detail
