#pragma once

#include <Platform/base/Export.h>

#include <map>
#include <string>
#include <vector>

namespace Platform {

/// The base of a small command-line program: a subclass puts the work into `main`, and the program
/// makes one and calls `run`.
class PLATFORM_EXPORT CommandLineTool {
public:
    CommandLineTool() = default;
    virtual ~CommandLineTool() = default;

    /// The program's work. `arguments` begins with the program's own path; both are bytes as the
    /// process was given them, and go when this returns. Does nothing unless overridden. What it
    /// throws ends the program: see `run`.
    virtual void main(const std::vector<std::string>& arguments,
                      const std::map<std::string, std::string>& environment);

    /// Calls `main` with this process's arguments and environment, on this thread; for once in a
    /// program, while no other thread changes the environment.
    ///
    /// Returns when `main` does. When it throws, this does not return: the error's description
    /// (`what()`, "unknown error" for what is no `std::exception`) goes to standard error just as
    /// it reads, without a line end, and the process exits with status 1, its static objects
    /// destroyed. Nothing is written of a description that is not valid UTF-8; that writing fails
    /// changes nothing.
    void run() noexcept;
};

} // namespace Platform
