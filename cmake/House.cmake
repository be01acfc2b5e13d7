# Build rules that every folder shares.
include(GNUInstallDirs)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
# The build tree has the folders of an installed prefix, so that the same relative run path finds libcommon.so in both.
# Otherwise CMake would edit the run path at installation. It reserves space for that with empty elements, and an empty
# element means the current folder to the loader.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/${CMAKE_INSTALL_LIBDIR}")
set(CMAKE_INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)

set(HOUSE_SANITIZE "" CACHE STRING "Sanitizers for the whole build: address,undefined or thread")
option(HOUSE_WERROR "Warnings are errors" ON)

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wno-sign-conversion -Wformat=2
                    -Wnon-virtual-dtor -Woverloaded-virtual -Wimplicit-fallthrough)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC 12 warns about overlapping copies wherever a literal is assigned to a std::string (GCC bug 105651).
    add_compile_options(-Wno-restrict)
endif()
if(HOUSE_WERROR)
    add_compile_options(-Werror)
endif()
add_compile_definitions(_GNU_SOURCE)
if(NOT CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|i.86)$")
    add_compile_options(-fsigned-char) # as on x86, where the programs are tested most; on ARM, char has no sign
endif()
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
    # Times after 2038 and files of more than 2 GB.
    add_compile_definitions(_FILE_OFFSET_BITS=64 _TIME_BITS=64)
    add_compile_options("SHELL:-include ${PROJECT_SOURCE_DIR}/cmake/poll_time64.h")
endif()
if(HOUSE_SANITIZE)
    add_compile_options(-fsanitize=${HOUSE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${HOUSE_SANITIZE})
    if(HOUSE_SANITIZE STREQUAL "thread")
        # Our fences are between processes. This sanitizer sees only one process and warns about every fence.
        add_compile_options(-Wno-tsan)
    endif()
endif()

# Hardening of every binary; tests/checks/check_hardening checks the results. _FORTIFY_SOURCE needs optimization, and it
# hides calls from the sanitizers. -pie is an ordinary link option here: CMake's own support would append it to every
# program, and there it would override -static-pie.
add_compile_options(-fstack-protector-strong)
add_link_options("$<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie>" LINKER:-z,relro LINKER:-z,now)
if(NOT HOUSE_SANITIZE)
    add_compile_options("$<$<CONFIG:RelWithDebInfo,Release>:-D_FORTIFY_SOURCE=2>")
endif()

find_program(CCACHE ccache)
if(CCACHE)
    # Without these settings ccache does not cache sources that use precompiled headers.
    set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env
        CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime "${CCACHE}")
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        add_compile_options(-fpch-preprocess)
    endif()
endif()

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)

# ---- Tests and benchmarks. ------------------------------------------------------------------------------------
set(HOUSE_TESTS AUTO CACHE STRING "Configure tests and benchmarks: ON, OFF, AUTO (if their libraries exist)")
set_property(CACHE HOUSE_TESTS PROPERTY STRINGS AUTO ON OFF)
if(HOUSE_TESTS STREQUAL "AUTO")
    find_package(GTest QUIET)
    find_package(benchmark QUIET)
    set(house_has_tests OFF)
    if(GTest_FOUND AND benchmark_FOUND)
        set(house_has_tests ON)
    else()
        message(STATUS "GoogleTest or Google Benchmark is not installed: no tests are configured")
    endif()
else()
    set(house_has_tests ${HOUSE_TESTS})
endif()

# house_tests_from_here(): the rest of a folder's CMakeLists.txt is for tests and is skipped without them. This is a
# macro because return() in a macro leaves the file that calls it.
macro(house_tests_from_here)
    if(NOT house_has_tests)
        return()
    endif()
endmacro()

# For the sources of tests: optimizing them takes longer than running them.
set(HOUSE_UNOPTIMIZED "$<$<CONFIG:RelWithDebInfo>:-O0>" "$<$<CONFIG:RelWithDebInfo>:-g1>"
                      "$<$<CONFIG:RelWithDebInfo>:-U_FORTIFY_SOURCE>")

# GoogleTest's headers, precompiled once for all tests. They work only with sources that have the same options. Tests
# that use GLib need -pthread, so all tests have it.
set(HOUSE_TEST_OPTIONS -pthread)
if(house_has_tests)
    find_package(GTest REQUIRED)
    find_package(benchmark REQUIRED)
    include(GoogleTest)
    add_executable(test_headers "${PROJECT_SOURCE_DIR}/cmake/test_headers.cpp")
    set_target_properties(test_headers PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests")
    target_compile_options(test_headers PRIVATE ${HOUSE_TEST_OPTIONS} ${HOUSE_UNOPTIMIZED})
    target_link_libraries(test_headers PRIVATE GTest::gmock GTest::gtest)
    target_precompile_headers(test_headers PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
endif()

# house_run_once(sources...): for sources whose code runs only for a moment, such as parsing a command line. Light
# optimization halves the time to compile them. Without optimization _FORTIFY_SOURCE would have no effect.
function(house_run_once)
    set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS
                                "$<$<CONFIG:RelWithDebInfo>:-Og>;$<$<CONFIG:RelWithDebInfo>:-g1>")
endfunction()

# house_gst_plugin_folder(VARIABLE): the folder of GStreamer's plugins on the decoder. In a cross build, pkg-config puts
# the sysroot before it.
function(house_gst_plugin_folder variable)
    pkg_get_variable(folder gstreamer-1.0 pluginsdir)
    if(CMAKE_SYSROOT)
        string(REPLACE "${CMAKE_SYSROOT}" "" folder "${folder}")
    endif()
    set(${variable} "${folder}" PARENT_SCOPE)
endfunction()

# house_library(NAME sources... LINK libraries...): a folder's static library. Include paths start at the top folder
# ("events/event_queue.h"), so that each line names the included folder.
function(house_library name)
    cmake_parse_arguments(ARG "" "" "LINK" ${ARGN})
    add_library(${name} STATIC ${ARG_UNPARSED_ARGUMENTS})
    target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}")
    target_link_libraries(${name} PUBLIC libcommon_headers ${ARG_LINK})
endfunction()

option(HOUSE_FUZZ "Build the libFuzzer programs" OFF)

# house_fuzzers(TARGETS names... SOURCES sources... [LINK libraries...]): the libFuzzer programs of this folder, with
# HOUSE_FUZZ, which needs clang. The name SoapAnswer stands for the function fuzzSoapAnswer of targets.cpp and becomes the
# program fuzz_soap_answer. The sources are compiled anew, with the sanitizers.
function(house_fuzzers)
    cmake_parse_arguments(ARG "" "" "TARGETS;SOURCES;LINK" ${ARGN})
    if(NOT HOUSE_FUZZ)
        return()
    endif()
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        message(FATAL_ERROR "HOUSE_FUZZ needs clang: configure with -DCMAKE_CXX_COMPILER=clang++")
    endif()
    foreach(target IN LISTS ARG_TARGETS)
        string(REGEX REPLACE "([a-z])([A-Z])" "\\1_\\2" name "fuzz_${target}")
        string(TOLOWER "${name}" name)
        add_executable(${name} entry.cpp targets.cpp ${ARG_SOURCES})
        target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
        target_compile_definitions(${name} PRIVATE FUZZ_TARGET=fuzz${target})
        target_compile_options(${name} PRIVATE -fsanitize=fuzzer,address,undefined -fno-sanitize-recover=all -O1 -g)
        target_link_options(${name} PRIVATE -fsanitize=fuzzer,address,undefined)
        target_link_libraries(${name} PRIVATE ${ARG_LINK})
    endforeach()
endfunction()

# house_test(NAME sources... LINK libraries... [LABELS labels...] [TIMEOUT seconds] [STREAMS]): one GoogleTest program.
# CTest runs each test in its own process, because most of the tested code has process-wide state. STREAMS: the program
# plays live streams, which are late on an overloaded machine, so CTest counts each of its tests as two.
function(house_test name)
    cmake_parse_arguments(ARG "STREAMS" "TIMEOUT" "LINK;LABELS" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 60)
    endif()
    if(CMAKE_CROSSCOMPILING) # the processor is emulated
        math(EXPR ARG_TIMEOUT "${ARG_TIMEOUT} * 5")
    endif()
    if(NOT ARG_LABELS)
        set(ARG_LABELS unit)
    endif()
    add_executable(${name} ${ARG_UNPARSED_ARGUMENTS})
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests")
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
    target_compile_options(${name} PRIVATE ${HOUSE_TEST_OPTIONS} ${HOUSE_UNOPTIMIZED}) # the tested code is optimized
    target_precompile_headers(${name} REUSE_FROM test_headers)
    target_link_libraries(${name} PRIVATE ${ARG_LINK} GTest::gmock GTest::gtest GTest::gtest_main)
    set(places 1)
    if(ARG_STREAMS)
        set(places 2)
    endif()
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST DISCOVERY_TIMEOUT 60
                         PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}" PROCESSORS ${places})
endfunction()
