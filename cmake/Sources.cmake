if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    set(platform_other_system darwin)
elseif(CMAKE_SYSTEM_NAME STREQUAL "Darwin")
    set(platform_other_system linux)
else()
    message(FATAL_ERROR "Platform runs on macOS and Linux, not on ${CMAKE_SYSTEM_NAME}.")
endif()

# platform_sources(VARIABLE PATTERN...): the files of this folder that match, relative to it and
# looked up again at every build; of a pair X.linux.* / X.darwin.* only the target system's.
macro(platform_sources variable)
    file(GLOB_RECURSE ${variable} CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} ${ARGN})
    list(FILTER ${variable} EXCLUDE REGEX "\\.${platform_other_system}\\.[a-z]+$")
endmacro()
