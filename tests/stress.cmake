# The long variants of the tests take as long as they take.
if(DEFINED ENV{PLATFORM_STRESS})
    set_tests_properties(${platform-tests_TESTS} PROPERTIES TIMEOUT 0)
endif()
