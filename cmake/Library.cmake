platform_sources(library_sources Platform/*.cpp)
platform_sources(library_headers Platform/*.h)

add_library(Platform ${library_sources})
add_library(Platform::Platform ALIAS Platform)
target_sources(Platform PUBLIC
    FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${library_headers})
target_compile_features(Platform PUBLIC cxx_std_20)
target_compile_options(Platform PRIVATE -ffunction-sections -fdata-sections)
target_link_libraries(Platform PUBLIC Threads::Threads PRIVATE $<BUILD_INTERFACE:platform_flags>)
# Only what PLATFORM_EXPORT marks is seen from outside, in both kinds of library alike.
set_target_properties(Platform PROPERTIES VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
    CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)

# Each header is the only include of a generated source: it compiles only if it stands alone.
if(PLATFORM_CHECK_HEADERS)
    set(generated)
    foreach(header IN LISTS library_headers)
        set(source ${PROJECT_BINARY_DIR}/headers/${header}.cpp)
        file(CONFIGURE OUTPUT ${source} CONTENT "#include <${header}>\n")
        list(APPEND generated ${source})
    endforeach()
    add_library(platform-headers OBJECT ${generated})
    target_link_libraries(platform-headers PRIVATE Platform platform_flags)
endif()
