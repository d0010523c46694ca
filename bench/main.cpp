#include <Platform/base/detail/LogSink.h>

#include "Comparison.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string_view>
#include <vector>

// platform-bench [Google Benchmark's own arguments]
int main(int argc, char** argv) try {
    // A server's end is logged each time; that is its work, but it need not be seen here.
    Platform::detail::setLogSink([](const char*, std::string_view) {});

    std::vector<char*> arguments(argv, argv + argc);
    char minTime[] =
        "--benchmark_min_time=2"; // for enough rounds; the caller's own comes later and wins
    arguments.insert(arguments.begin() + 1, minTime);
    arguments.push_back(nullptr);
    int count = argc + 1;
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) return EXIT_FAILURE;
    Bench::Table table;
    benchmark::RunSpecifiedBenchmarks(&table);
    benchmark::Shutdown();
    return EXIT_SUCCESS;
} catch (const std::exception& error) { // a side that did not do its work: no table then
    std::fprintf(stderr, "platform-bench: %s\n", error.what());
    return EXIT_FAILURE;
}
