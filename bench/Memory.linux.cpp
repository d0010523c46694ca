#include "Memory.h"

#include <fstream>
#include <stdexcept>
#include <string>

#include <malloc.h>
#include <sched.h>

namespace Bench {

double peakMemory(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process);
    for (std::string line; line.find(") S ") == std::string::npos; sched_yield()) {
        if (!std::getline(std::ifstream(folder + "/stat"), line)) {
            throw std::runtime_error("the process has gone");
        }
    }
    std::ifstream status(folder + "/status");
    for (std::string word; status >> word;) {
        if (double kibibytes = 0; word == "VmHWM:" && status >> kibibytes) return kibibytes * 1024;
    }
    throw std::runtime_error("no VmHWM");
}

double heapInUse() {
    const auto info = mallinfo2();
    return static_cast<double>(info.uordblks) + static_cast<double>(info.hblkhd);
}

} // namespace Bench
