# Installs the build BUILD into an empty folder, then configures, builds and runs the project SOURCE
# against what is there, and nothing else.
set(work ${BUILD}/consumer)
file(REMOVE_RECURSE ${work})
unset(ENV{DESTDIR})

function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT status EQUAL 0)
        message(FATAL_ERROR "${ARGN}: ${status}\n${output}")
    endif()
    set(output "${output}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${BUILD} --prefix ${work}/installed)
run(${CMAKE_COMMAND} -S ${SOURCE} -B ${work}/build -G ${GENERATOR} -D CMAKE_CXX_COMPILER=${COMPILER}
    -D CMAKE_CXX_FLAGS=${FLAGS}
    -D CMAKE_PREFIX_PATH=${work}/installed -D CMAKE_BUILD_TYPE=Release)
file(STRINGS ${work}/build/CMakeCache.txt found REGEX "^Platform_DIR:")
string(FIND "${found}" "=${work}/installed/" position)
if(position EQUAL -1)
    message(FATAL_ERROR "Another package was found: ${found}")
endif()
run(${CMAKE_COMMAND} --build ${work}/build)
run(${work}/build/consumer)
if(NOT output STREQUAL "No such file or directory\n")
    message(FATAL_ERROR "The consumer printed: ${output}")
endif()
if(NOT EXISTS ${work}/installed/bin/editor-shim)
    message(FATAL_ERROR "The programs are not installed.")
endif()
