# platform_add_executable(NAME SOURCE...): an executable that uses the library.
function(platform_add_executable name)
    add_executable(${name} ${ARGN})
    target_link_libraries(${name} PRIVATE Platform::Platform platform_flags)
    target_link_options(${name} PRIVATE $<$<PLATFORM_ID:Linux>:-Wl,--gc-sections>)
    if(PLATFORM_EMULATE_DARWIN)
        target_link_libraries(${name} PRIVATE darwin-emulation)
    endif()
endfunction()

# platform_add_plain_c(NAME SOURCE...): an executable of system calls only, without the library. It has
# Linux's calls, emulated system or not.
function(platform_add_plain_c name)
    add_executable(${name} ${ARGN})
    target_link_libraries(${name} PRIVATE platform_flags Threads::Threads)
    set_target_properties(${name} PROPERTIES C_STANDARD 17 C_EXTENSIONS ON)
endfunction()

# platform_link_statically(NAME): the program needs nothing, not even a dynamic linker. Darwin has no
# static programs, emulated or not, and the sanitizers' run-time libraries do not work in them.
function(platform_link_statically name)
    if(CMAKE_SYSTEM_NAME STREQUAL "Linux" AND NOT PLATFORM_SANITIZE AND NOT BUILD_SHARED_LIBS
            AND NOT PLATFORM_EMULATE_DARWIN)
        target_link_options(${name} PRIVATE -static)
    endif()
endfunction()

# platform_add_program(NAME SOURCE...): a program of the product, installed with the library. Users
# of the package know it as Platform::NAME, from an installed package or as a subdirectory alike.
function(platform_add_program name)
    platform_add_executable(${name} ${ARGN})
    platform_link_statically(${name})
    # Fewer pages to fault in at start-up: code and constants share them, by their names.
    target_link_options(${name} PRIVATE
        $<$<PLATFORM_ID:Linux>:-Wl,-z,noseparate-code,--sort-section=name>)
    add_executable(Platform::${name} ALIAS ${name})
    set_property(GLOBAL APPEND PROPERTY PLATFORM_PROGRAMS ${name})
    # A shared library is found where it is installed with the program, wherever that is.
    if(BUILD_SHARED_LIBS)
        cmake_path(RELATIVE_PATH CMAKE_INSTALL_FULL_LIBDIR
                   BASE_DIRECTORY ${CMAKE_INSTALL_FULL_BINDIR} OUTPUT_VARIABLE libraries)
        set(folder $<IF:$<PLATFORM_ID:Darwin>,@loader_path,$ORIGIN>)
        set_target_properties(${name} PROPERTIES INSTALL_RPATH ${folder}/${libraries})
    endif()
    install(TARGETS ${name} EXPORT PlatformTargets RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endfunction()
