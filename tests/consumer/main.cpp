#include <Platform/Platform.h>

#include <cerrno>
#include <cstdio>

int main() {
    std::puts(Platform::Errno(ENOENT).what());
}
