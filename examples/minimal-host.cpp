// minimal-host COMMAND [TEXT]...: runs COMMAND, writes the first TEXT into the first file that it
// wants edited, the second into the second, and declines when no TEXT is left.
#include <Platform/Platform.h>

#include <cstdlib>
#include <fstream>
#include <iostream>

static char** nextText;

static Platform::Task<bool> askTheUser(std::string path) {
    std::cout << "asked to edit " << path << ": " << (*nextText ? *nextText : "(declined)")
              << std::endl;
    if (!*nextText) co_return false;
    std::ofstream(path) << *nextText++ << '\n';
    co_return true;
}

int main(int, char** argv) {
    nextText = argv + 2;
    Platform::Editor::Server server([](std::string path) -> Platform::Task<bool> {
        co_return co_await askTheUser(path); // any coroutine; true accepts
    });
    for (auto& [name, value] : server.environment()) setenv(name.c_str(), value.c_str(), 1);
    return std::system(argv[1]) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
