#include <Platform/command/RunningInstance.h>

#include <Platform/command/detail/CommandRun.h>

namespace Platform {

Cmd::RunningInstance::RunningInstance(const Cmd& command, const Options& options)
    : run_(std::make_unique<detail::CommandRun>(command, options, false)) {
    run_->startOutput();
}

Cmd::RunningInstance::~RunningInstance() = default;

int Cmd::RunningInstance::processIdentifier() const noexcept {
    return run_->process().id();
}

bool Cmd::RunningInstance::isRunning() const noexcept {
    return run_->process().isRunning();
}

Task<> Cmd::RunningInstance::wait() {
    return wait(shared_from_this());
}

Task<> Cmd::RunningInstance::wait(std::shared_ptr<RunningInstance> instance) {
    auto waiting = instance->run_->wait();
    co_await waiting;
}

void Cmd::RunningInstance::interrupt() noexcept {
    run_->interrupt();
}

void Cmd::RunningInstance::terminate() noexcept {
    run_->terminate();
}

bool Cmd::RunningInstance::sendSignal(int number) noexcept {
    return run_->sendSignal(number);
}

std::optional<int> Cmd::RunningInstance::endingSignal() const noexcept {
    return run_->process().endingSignal();
}

} // namespace Platform
