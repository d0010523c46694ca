#pragma once

#include <Platform/base/ProcessInfo.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include <gtest/gtest.h>
#include <stdlib.h>

namespace Platform {

/// An empty directory of its own, which goes with everything in it.
class Scratch {
public:
    Scratch() {
        std::string name = std::filesystem::temp_directory_path() / "platform-tests-XXXXXX";
        EXPECT_NE(::mkdtemp(name.data()), nullptr);
        path_ = name;
    }
    ~Scratch() { std::filesystem::remove_all(path_); }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;

    std::string operator/(const char* name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

/// Gives a variable a value, or none, for as long as it lives.
class Variable {
public:
    Variable(const char* name, const std::optional<std::string>& value)
        : name_(name), before_(ProcessInfo::environmentValue(name)) {
        set(value);
    }
    ~Variable() { set(before_); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    void set(const std::optional<std::string>& value) const {
        value ? ::setenv(name_, value->c_str(), 1) : ::unsetenv(name_);
    }
    const char* name_;
    std::optional<std::string> before_;
};

} // namespace Platform
