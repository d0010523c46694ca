#include "Memory.h"

#include <fstream>
#include <stdexcept>
#include <string>

#include <malloc.h>
#include <sched.h>

namespace Bench {

namespace {

double statusValue(const std::string& folder, const std::string& name) {
    std::ifstream status(folder + "/status");
    for (std::string word; status >> word;) {
        if (double kibibytes = 0; word == name && status >> kibibytes) return kibibytes * 1024;
    }
    throw std::runtime_error("no " + name);
}

} // namespace

double peakMemory(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process);
    for (std::string line; line.find(") S ") == std::string::npos; sched_yield()) {
        if (!std::getline(std::ifstream(folder + "/stat"), line)) {
            throw std::runtime_error("the process has gone");
        }
    }
    return statusValue(folder, "VmHWM:");
}

double peakMemoryDuring(const std::function<void()>& work) {
    std::ofstream("/proc/self/clear_refs") << "5"; // the peak is what there is now
    const double before = statusValue("/proc/self", "VmRSS:");
    work();
    return statusValue("/proc/self", "VmHWM:") - before;
}

double heapInUse() {
    const auto info = mallinfo2();
    return static_cast<double>(info.uordblks) + static_cast<double>(info.hblkhd);
}

} // namespace Bench
