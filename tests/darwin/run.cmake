# How the tests run on the emulation. TMPDIR has 50 characters, as it has on macOS. Unlike there, the
# folder lets other users pass, whom some tests become.
execute_process(COMMAND id -u OUTPUT_VARIABLE user OUTPUT_STRIP_TRAILING_WHITESPACE)
string(REGEX MATCH "..........$" user 0000000000${user})
set(folder /tmp/run-folders-${user}/zz/zyxvpxvq6csfxvn_/T/)
file(MAKE_DIRECTORY ${folder})
file(CHMOD ${folder} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_EXECUTE WORLD_EXECUTE)
set_tests_properties(${platform-tests_TESTS} PROPERTIES ENVIRONMENT TMPDIR=${folder})

# A test that cannot hold here fails, or the list has to shrink.
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/not-emulated.txt listed REGEX "^[^#]")
foreach(name IN LISTS listed)
    if(NOT name IN_LIST platform-tests_TESTS)
        message(FATAL_ERROR "tests/darwin/not-emulated.txt: there is no test ${name}")
    endif()
    set_tests_properties(${name} PROPERTIES WILL_FAIL ON)
endforeach()
