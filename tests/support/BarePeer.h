#pragma once

#include <support/Testing.h>

namespace Platform::Testing {

/// The other side of a pipe, on a thread of its own: blocking system calls and nothing of the
/// library.
class BarePeer {
public:
    /// Goes through the steps in order: '<' opens the pipe, writes the message and closes, '>'
    /// opens it and reads to the end; '@' connects to the host's presence, for as long as the steps
    /// last, and waits for the turn. Stops at the first step that fails.
    BarePeer(std::string path, std::string steps, std::string message = {});
    ~BarePeer() { release(); }

    /// Whether the steps are done, or one has failed.
    bool hasEnded() const { return ended_; }

    /// Waits until the steps are done; returns what came, one string a '>'.
    std::vector<std::string> finish();

    /// The same, but ends the step that waits.
    std::vector<std::string> release();

private:
    void run();
    bool step(char direction);
    bool waitForTurn();

    const std::string path_;
    const std::string steps_;
    const std::string message_;
    std::vector<std::string> received_;
    int connection_ = -1;
    std::atomic<bool> ended_ = false;
    std::thread thread_;
};

} // namespace Platform::Testing
