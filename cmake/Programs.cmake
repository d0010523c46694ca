# platform_add_executable(NAME SOURCE...): an executable that uses the library.
function(platform_add_executable name)
    add_executable(${name} ${ARGN})
    target_link_libraries(${name} PRIVATE Platform::Platform platform_flags)
    target_link_options(${name} PRIVATE $<$<PLATFORM_ID:Linux>:-Wl,--gc-sections>)
endfunction()

# platform_add_plain_c(NAME SOURCE...): an executable of system calls only, without the library.
function(platform_add_plain_c name)
    add_executable(${name} ${ARGN})
    target_link_libraries(${name} PRIVATE platform_flags Threads::Threads)
    set_target_properties(${name} PROPERTIES C_STANDARD 17 C_EXTENSIONS ON)
endfunction()

# platform_link_statically(NAME): the program needs nothing, not even a dynamic linker. Darwin has no
# static programs, and the sanitizers' run-time libraries do not work in them.
function(platform_link_statically name)
    get_target_property(type Platform TYPE)
    if(CMAKE_SYSTEM_NAME STREQUAL "Linux" AND NOT PLATFORM_SANITIZE AND type STREQUAL "STATIC_LIBRARY")
        target_link_options(${name} PRIVATE -static)
    endif()
endfunction()

# platform_add_program(NAME SOURCE...): a program of the product, installed with the library.
function(platform_add_program name)
    platform_add_executable(${name} ${ARGN})
    platform_link_statically(${name})
    # Fewer pages to fault in at start-up: code and constants share them, by their names.
    target_link_options(${name} PRIVATE
        $<$<PLATFORM_ID:Linux>:-Wl,-z,noseparate-code,--sort-section=name>)
    install(TARGETS ${name} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()
