# The project SOURCE is built and run by each of the three ways into the library: with what the
# build BUILD installs, through CMake's package and through pkg-config; as a project that has
# PLATFORM as a subdirectory, and so compiles the library once more, in the other kind (SHARED tells
# BUILD's); and with what that one installs. Each installed tree is moved first: it must not know
# where it was.
set(work ${BUILD}/consumer)
file(REMOVE_RECURSE ${work})
unset(ENV{DESTDIR})
unset(ENV{LD_LIBRARY_PATH})
find_program(READELF readelf) # not on macOS
find_program(PKG_CONFIG NAMES pkg-config pkgconf REQUIRED)

function(run)
    execute_process(COMMAND ${ARGN}
        RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE error)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "${ARGN}: ${status}\n${output}${error}")
    endif()
    string(STRIP "${output}" output)
    set(output "${output}" PARENT_SCOPE)
endfunction()

function(expect_verdicts program)
    run(${program})
    if(NOT output STREQUAL "accepted: 0, declined: 1")
        message(FATAL_ERROR "${program} printed: ${output}")
    endif()
endfunction()

function(build folder)
    run(${CMAKE_COMMAND} -S ${SOURCE} -B ${folder} -G ${GENERATOR}
        -D CMAKE_CXX_COMPILER=${COMPILER} -D CMAKE_CXX_FLAGS=${FLAGS} ${ARGN})
    run(${CMAKE_COMMAND} --build ${folder} --parallel 2)
endfunction()

function(use_installed build place)
    run(${CMAKE_COMMAND} --install ${build} --prefix ${place}/first)
    file(RENAME ${place}/first ${place}/moved)

    # What is not in detail/ is seen from outside, errors' types too, or it could not be caught.
    file(GLOB_RECURSE archive ${place}/moved/libPlatform.a)
    if(archive AND READELF)
        run(${READELF} -sW ${archive})
        string(REGEX MATCHALL "(FUNC +GLOBAL|OBJECT +WEAK) +HIDDEN +[0-9]+ _Z(NK?|TIN)8Platform[^\n]+"
               hidden "${output}")
        list(FILTER hidden EXCLUDE REGEX "8Platform6detail")
        if(hidden OR NOT output MATCHES "DEFAULT +[0-9]+ _ZN8Platform6Editor")
            message(FATAL_ERROR "PLATFORM_EXPORT is missing: ${hidden}")
        endif()
    endif()

    build(${place}/build -D CMAKE_PREFIX_PATH=${place}/moved)
    file(STRINGS ${place}/build/CMakeCache.txt found REGEX "^Platform_DIR:")
    string(FIND "${found}" "=${place}/moved/" position)
    if(position EQUAL -1)
        message(FATAL_ERROR "Another package was found: ${found}")
    endif()
    expect_verdicts(${place}/build/consumer)

    file(GLOB_RECURSE package ${place}/moved/platform.pc)
    cmake_path(GET package PARENT_PATH folder)
    set(ENV{PKG_CONFIG_PATH} ${folder})
    foreach(variable IN ITEMS bindir libdir)
        run(${PKG_CONFIG} --variable=${variable} platform)
        set(${variable} ${output})
    endforeach()
    run(${PKG_CONFIG} --cflags --libs platform)
    separate_arguments(flags UNIX_COMMAND "${FLAGS} ${output}")
    run(${COMPILER} -std=c++20 ${SOURCE}/main.cpp -o ${place}/bare
        "-DEDITOR_SHIM=\"${bindir}/editor-shim\"" ${flags} -Wl,-rpath,${libdir})
    expect_verdicts(${place}/bare)
endfunction()

use_installed(${BUILD} ${work}/own)
if(SHARED)
    set(other OFF)
else()
    set(other ON)
endif()
build(${work}/within -D PLATFORM_SOURCE=${PLATFORM} -D BUILD_SHARED_LIBS=${other})
expect_verdicts(${work}/within/consumer)
use_installed(${work}/within ${work}/other)
