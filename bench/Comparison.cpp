#include "Comparison.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace Bench {

namespace {

double median(std::vector<double>& samples) {
    const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
    std::nth_element(samples.begin(), middle, samples.end());
    return *middle;
}

std::string formatted(const char* format, double value) {
    char text[32];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string time(double seconds) {
    if (seconds < 1e-6) return formatted("%.1f ns", seconds * 1e9);
    if (seconds < 1e-3) return formatted("%.1f us", seconds * 1e6);
    return formatted("%.3f ms", seconds * 1e3);
}

std::string size(double bytes) {
    return bytes < 4096 ? formatted("%.0f B", bytes) : formatted("%.0f KiB", bytes / 1024);
}

void printRow(const char* what, const char* ours, const char* bare, const char* ratio,
              const char* target) {
    std::printf("%-50s | %10s | %10s | %6s | %s\n", what, ours, bare, ratio, target);
    std::fflush(stdout);
}

using Format = std::string (*)(double);

/// A row for the amounts "ours_s" and "bare_s", if they are there; likewise for other suffixes.
void printAmounts(const std::string& what, const benchmark::UserCounters& counters,
                  const std::string& suffix, Format format) {
    const auto ours = counters.find("ours_" + suffix);
    const auto bare = counters.find("bare_" + suffix);
    if (ours == counters.end() || bare == counters.end()) return;
    const double ratio = ours->second / bare->second;
    std::string target;
    const auto aim = [&](const std::string& goal, double value, double most) {
        target = goal + (value <= most ? ": met" : ": MISSED");
    };
    if (const auto most = counters.find("most_ratio"); most != counters.end()) {
        aim("ratio <= " + formatted("%.2f", most->second), ratio, most->second);
    } else if (const auto limit = counters.find("most_" + suffix); limit != counters.end()) {
        aim("ours <= " + format(limit->second), ours->second, limit->second);
    }
    printRow(what.c_str(), format(ours->second).c_str(), format(bare->second).c_str(),
             formatted("%.2f", ratio).c_str(), target.c_str());
}

} // namespace

void compareTimes(benchmark::State& state, std::int64_t operations, const Round& ours,
                  const Round& bare) {
    std::vector<double> oursSeconds;
    std::vector<double> bareSeconds;
    for (auto _ : state) {
        const bool oursFirst = oursSeconds.size() % 2 == 0;
        if (!oursFirst) bareSeconds.push_back(bare().count());
        oursSeconds.push_back(ours().count());
        if (oursFirst) bareSeconds.push_back(bare().count());
        state.SetIterationTime(oursSeconds.back() + bareSeconds.back());
    }
    state.counters["ours_s"] = median(oursSeconds) / static_cast<double>(operations);
    state.counters["bare_s"] = median(bareSeconds) / static_cast<double>(operations);
}

void noteBytes(benchmark::State& state, double ours, double bare) {
    state.counters["ours_bytes"] = ours;
    state.counters["bare_bytes"] = bare;
}

void aimAtRatio(benchmark::State& state, double most) {
    state.counters["most_ratio"] = most;
}

void aimAt(benchmark::State& state, Seconds most) {
    state.counters["most_s"] = most.count();
}

bool Table::ReportContext(const Context& context) {
    std::printf("%d cores; load", context.cpu_info.num_cpus);
    for (const double load : context.cpu_info.load_avg) std::printf(" %.2f", load);
    std::printf("; medians for one operation\n\n");
    printRow("what", "ours", "bare", "ratio", "target");
    return true;
}

void Table::ReportRuns(const std::vector<Run>& runs) {
    for (const Run& run : runs) {
        std::string what = run.run_name.function_name;
        if (!run.run_name.args.empty()) what += ": " + run.run_name.args;
        if (run.run_type == Run::RT_Aggregate) what += " (" + run.aggregate_name + ")";
        printAmounts(what, run.counters, "s", &time);
        printAmounts(what, run.counters, "bytes", &size);
    }
}

} // namespace Bench
