# The compiler and linker flags of everything that is built here. They are no part of the library's
# interface: a consumer of the installed package never sees them.
add_library(platform_flags INTERFACE)
target_compile_options(platform_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<BOOL:${PLATFORM_WERROR}>:-Werror>)

if(PLATFORM_SANITIZE)
    # Programs in C are bare peers: a sanitizer's run-time library would change what they see.
    set(sanitize -fsanitize=${PLATFORM_SANITIZE} -fno-sanitize-recover=all)
    target_compile_options(platform_flags INTERFACE
        "$<$<COMPILE_LANGUAGE:CXX>:${sanitize};-fno-omit-frame-pointer>")
    target_link_options(platform_flags INTERFACE "$<$<LINK_LANGUAGE:CXX>:${sanitize}>")
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # GCC's manual: sanitizing causes false positives of this warning. The plain presets keep it.
        target_compile_options(platform_flags INTERFACE -Wno-maybe-uninitialized)
    endif()
endif()
