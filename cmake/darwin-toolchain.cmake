# macOS on arm64 with a cross compiler that scripts/lib/darwin-toolchain.sh installs. It lacks a few of
# the system's headers: darwin-stand-ins/ declares what is used of them, for this check only.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR arm64)
set(CMAKE_C_COMPILER ${CMAKE_CURRENT_LIST_DIR}/darwin/cc)
set(CMAKE_CXX_COMPILER ${CMAKE_CURRENT_LIST_DIR}/darwin/c++)
set(CMAKE_AR ${CMAKE_CURRENT_LIST_DIR}/darwin/ar)
set(CMAKE_RANLIB ${CMAKE_CURRENT_LIST_DIR}/darwin/ranlib)
set(CMAKE_C_FLAGS_INIT "-isystem ${CMAKE_CURRENT_LIST_DIR}/darwin-stand-ins")
set(CMAKE_CXX_FLAGS_INIT "-isystem ${CMAKE_CURRENT_LIST_DIR}/darwin-stand-ins")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
