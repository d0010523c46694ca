#pragma once

#include <Platform/base/ProcessInfo.h>

#include <filesystem>
#include <optional>
#include <string>

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

namespace Platform {

/// An empty directory of its own, which goes with everything in it.
class Scratch {
    std::string path_ = std::filesystem::temp_directory_path() / "platform-tests-XXXXXX";

public:
    Scratch() { EXPECT_NE(::mkdtemp(path_.data()), nullptr); }
    ~Scratch() { std::filesystem::remove_all(path_); }

    std::string operator/(const char* name) const { return path_ + "/" + name; }
};

/// Gives a variable a value, or none, for as long as it lives.
class Variable {
    const char* const name_;
    const std::optional<std::string> before_ = ProcessInfo::environmentValue(name_);

    void set(const std::optional<std::string>& value) const {
        value ? ::setenv(name_, value->c_str(), 1) : ::unsetenv(name_);
    }

public:
    Variable(const char* name, const std::optional<std::string>& value) : name_(name) {
        set(value);
    }
    ~Variable() { set(before_); }
};

} // namespace Platform
