# macOS's half of the library, built and run on Linux: headers that Linux lacks, and what macOS's calls
# do where Linux's do something else. The linker puts __wrap_X in the place of each X of this list.
set(wrapped
    # Files.cpp
    close dup dup2 fcntl open openat poll write
    # Sockets.cpp
    accept connect listen read recv send setsockopt
    # Signals.cpp
    sigaction sigwait
    # Processes.cpp
    kill posix_spawn posix_spawnp posix_spawn_file_actions_adddup2 posix_spawnattr_setflags waitid
    # System.cpp
    confstr)
list(TRANSFORM wrapped PREPEND -Wl,--wrap=)

target_compile_options(platform_flags INTERFACE
    "SHELL:-isystem ${CMAKE_CURRENT_LIST_DIR}/include" "SHELL:-include macos.h")
file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_LIST_DIR}/*.cpp)
list(FILTER sources EXCLUDE REGEX "Tests\\.darwin\\.cpp$")
add_library(darwin-emulation OBJECT ${sources})
target_link_libraries(darwin-emulation PRIVATE platform_flags)
target_link_options(darwin-emulation INTERFACE ${wrapped})
unset(sources)
unset(wrapped)
