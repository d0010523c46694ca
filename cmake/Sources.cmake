if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    set(platform_other_system darwin)
elseif(CMAKE_SYSTEM_NAME STREQUAL "Darwin")
    set(platform_other_system linux)
else()
    message(FATAL_ERROR "Platform runs on macOS and Linux, not on ${CMAKE_SYSTEM_NAME}.")
endif()
# These halves of macOS's stand on frameworks and services that are not emulated.
if(PLATFORM_EMULATE_DARWIN)
    set(platform_other_system linux)
    set(platform_not_emulated "^(Platform/base/Log|Platform/command/Sudo|Memory)\\.darwin\\.")
endif()

# platform_sources(VARIABLE PATTERN...): the files of this folder that match, relative to it and
# looked up again at every build; of a pair X.linux.* / X.darwin.* only the target system's.
macro(platform_sources variable)
    file(GLOB_RECURSE ${variable} CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} ${ARGN})
    list(FILTER ${variable} EXCLUDE REGEX "\\.${platform_other_system}\\.[a-z]+$")
    if(PLATFORM_EMULATE_DARWIN)
        list(TRANSFORM ${variable} REPLACE "${platform_not_emulated}" "\\1.linux.")
    endif()
endmacro()
