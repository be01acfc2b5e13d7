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
endif()

find_program(CCACHE ccache)
if(CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${CCACHE}")
endif()

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)
find_package(GTest REQUIRED)
include(GoogleTest)

# house_library(NAME sources... LINK libraries...): a folder's static library. Includes are written from the
# root of the house ("events/event_queue.h"), so that a line tells which folder it reaches into.
function(house_library name)
    cmake_parse_arguments(ARG "" "" "LINK" ${ARGN})
    add_library(${name} STATIC ${ARG_UNPARSED_ARGUMENTS})
    target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}")
    target_link_libraries(${name} PUBLIC libcommon_headers ${ARG_LINK})
endfunction()

# house_test(NAME sources... LINK libraries...): one GoogleTest program. Every test runs in a process of its
# own under ctest, because most of what is tested keeps process-wide state.
function(house_test name)
    cmake_parse_arguments(ARG "" "TIMEOUT" "LINK;LABELS" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 60)
    endif()
    if(NOT ARG_LABELS)
        set(ARG_LABELS unit)
    endif()
    add_executable(${name} ${ARG_UNPARSED_ARGUMENTS})
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests")
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}")
    # A test's own source runs once: optimizing it takes longer than running it. What is tested is optimized.
    target_compile_options(${name} PRIVATE $<$<CONFIG:RelWithDebInfo>:-O0;-g1>)
    target_link_libraries(${name} PRIVATE ${ARG_LINK} GTest::gmock GTest::gtest GTest::gtest_main)
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST
                         PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}")
endfunction()
