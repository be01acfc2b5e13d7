# Build rules that every folder shares.
include(GNUInstallDirs)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
# An installed program finds libcommon.so beside itself, wherever the prefix is.
set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")

set(HOUSE_SANITIZE "" CACHE STRING "Sanitizers for the whole build: address,undefined or thread")
option(HOUSE_WERROR "Warnings are errors" ON)

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Wformat=2
                    -Wnon-virtual-dtor -Woverloaded-virtual -Wimplicit-fallthrough)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC 12 sees overlapping copies in any std::string that is assigned a literal (its bug 105651).
    add_compile_options(-Wno-restrict)
endif()
if(HOUSE_WERROR)
    add_compile_options(-Werror)
endif()
add_compile_definitions(_GNU_SOURCE)
if(HOUSE_SANITIZE)
    add_compile_options(-fsanitize=${HOUSE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${HOUSE_SANITIZE})
    if(HOUSE_SANITIZE STREQUAL "thread")
        # Fences stand between processes here, and this sanitizer sees one process alone.
        add_compile_options(-Wno-tsan)
    endif()
endif()

find_program(CCACHE ccache)
if(CCACHE)
    # What it must be told of precompiled headers, which it leaves alone otherwise.
    set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env
        CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime "${CCACHE}")
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        add_compile_options(-fpch-preprocess)
    endif()
endif()

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(GTest REQUIRED)
include(GoogleTest)

# What runs once or for a moment, a test's own source or the reading of a command line: optimizing it takes
# longer than running it.
set(HOUSE_UNOPTIMIZED "$<$<CONFIG:RelWithDebInfo>:-O0>" "$<$<CONFIG:RelWithDebInfo>:-g1>")

# GoogleTest's headers, read once for all tests. They serve only what has the same options: tests that use GLib
# bring -pthread along, so all of them have it.
set(HOUSE_TEST_OPTIONS -pthread)
add_executable(test_headers "${PROJECT_SOURCE_DIR}/cmake/test_headers.cpp")
target_compile_options(test_headers PRIVATE ${HOUSE_TEST_OPTIONS} ${HOUSE_UNOPTIMIZED})
target_link_libraries(test_headers PRIVATE GTest::gmock GTest::gtest)
target_precompile_headers(test_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h>)

# house_unoptimized(sources...): of the folder that calls it.
function(house_unoptimized)
    set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS "${HOUSE_UNOPTIMIZED}")
endfunction()

# house_library(NAME sources... LINK libraries...): a folder's static library. Includes are written from the
# root of the house ("events/event_queue.h"), so that a line tells which folder it reaches into.
function(house_library name)
    cmake_parse_arguments(ARG "" "" "LINK" ${ARGN})
    add_library(${name} STATIC ${ARG_UNPARSED_ARGUMENTS})
    target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}")
    target_link_libraries(${name} PUBLIC libcommon_headers ${ARG_LINK})
endfunction()

# house_test(NAME sources... LINK libraries... [STREAMS]): one GoogleTest program. Every test runs in a process
# of its own under ctest, because most of what is tested keeps process-wide state. STREAMS: it plays live
# streams, which come late on a machine that does too much at once; such tests take the place of two.
function(house_test name)
    cmake_parse_arguments(ARG "STREAMS" "TIMEOUT" "LINK;LABELS" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 60)
    endif()
    if(NOT ARG_LABELS)
        set(ARG_LABELS unit)
    endif()
    add_executable(${name} ${ARG_UNPARSED_ARGUMENTS})
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests")
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
    target_compile_options(${name} PRIVATE ${HOUSE_TEST_OPTIONS} ${HOUSE_UNOPTIMIZED}) # what is tested is optimized
    target_precompile_headers(${name} REUSE_FROM test_headers)
    target_link_libraries(${name} PRIVATE ${ARG_LINK} GTest::gmock GTest::gtest GTest::gtest_main)
    set(places 1)
    if(ARG_STREAMS)
        set(places 2)
    endif()
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST
                         PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}" PROCESSORS ${places})
endfunction()
