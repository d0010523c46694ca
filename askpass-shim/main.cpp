#include <Platform/askpass/Client.h>
#include <Platform/runtime/RunMain.h>

#include <cstdlib>

// The task waits for nothing but the pipe, so its thread may as well do the waiting.
int main() try {
    Platform::runMain(Platform::Askpass::Client::main(), Platform::IdleThread::runsBlockingWork);
    return EXIT_SUCCESS;
} catch (...) {
    return EXIT_FAILURE;
}
