// host: accepts edits until it is killed, and says first where; a path that contains "wait" is
// never answered.
#include <Platform/editor/Server.h>
#include <Platform/runtime/CheckedContinuation.h>

#include <cstdio>
#include <string>

#include <unistd.h>

static Platform::Task<bool> ask(std::string path) {
    if (path.find("wait") != path.npos) {
        static std::optional<Platform::CheckedContinuation<>> kept;
        co_await Platform::withCheckedContinuation("wait", [](auto never) { kept = never; });
    }
    co_return true;
}

int main() {
    const Platform::Editor::Server server(ask);
    std::puts(server.path().c_str());
    std::fflush(stdout);
    for (;;) ::pause();
}
