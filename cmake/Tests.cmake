# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later

# How the tests are built and registered; for tests/ and the folders below it.
include(GoogleTest)

add_custom_target(voltis_unit_tests)
add_custom_target(voltis_outside_tests)

# A program of <name>.cpp, when there is such a file, and the sources. Includes name the path from src/
# or from the tree's root.
function(voltis_test_program name)
    cmake_parse_arguments(arg "" "" "SOURCES;LIBS" ${ARGN})
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${name}.cpp)
        list(APPEND arg_SOURCES ${name}.cpp)
    endif()
    add_executable(${name} ${arg_SOURCES})
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR})
    target_link_libraries(${name} PRIVATE ${arg_LIBS})
    if(VOLTIS_TESTS_PCH)
        target_precompile_headers(${name} REUSE_FROM ${VOLTIS_TESTS_PCH})
    endif()
endfunction()

# For what happens hundreds of thousands of times, unlike the rest of the tests. It cannot use the
# precompiled header, which has the tests' flags.
function(voltis_optimise)
    foreach(target ${ARGN})
        if(VOLTIS_SANITIZE)
            target_compile_options(${target} PRIVATE -O1)
        elseif(NOT VOLTIS_COVERAGE)
            target_compile_options(${target} PRIVATE -O2)
        endif()
        set_target_properties(${target} PROPERTIES DISABLE_PRECOMPILE_HEADERS ON)
    endforeach()
endfunction()

# The folder tests/ of another build: its programs test this build's from outside, and are not built
# twice.
set(VOLTIS_OUTSIDE_TESTS "" CACHE PATH "Test programs of another build, for the tests from outside")

# What a unit does is the same in every build, and the sanitizers see more of it; so where both builds
# are tested, scripts/test has its tests built and run once.
option(VOLTIS_UNITS_ELSEWHERE "Leave tests of units out, for another build has them" OFF)

# Every test of an executable runs in a process of its own, so that flags which the driver never
# clears start fresh. With EACH_ALONE these are children of one process, all one test of ctest: to
# start a program takes longer than most tests do. With SHARDS as well, they are divided among so many
# processes, each a test of ctest: for tests that wait. With WHOLE all of them run in one process: for
# units without state of the process. With TOGETHER, the tests that match one of these patterns run in
# one process, as a test with the name of the program. With UNITY, so many sources are compiled as one:
# what they share of the headers takes longer than their own lines. With OUTSIDE, the tests only start
# other programs. With ONCE, they are tests of units, built where VOLTIS_UNITS_ELSEWHERE is off.
function(voltis_add_test name)
    cmake_parse_arguments(arg "WHOLE;EACH_ALONE;OUTSIDE;ONCE" "TIMEOUT;UNITY;SHARDS"
        "SOURCES;LIBS;LABELS;TOGETHER" ${ARGN})
    if(NOT arg_TIMEOUT AND arg_EACH_ALONE)
        set(arg_TIMEOUT 300)
    elseif(NOT arg_TIMEOUT)
        set(arg_TIMEOUT 60)
    endif()
    if(CMAKE_CROSSCOMPILING)  # an emulated processor is slow
        math(EXPR arg_TIMEOUT "${arg_TIMEOUT} * 5")
    endif()
    if(NOT arg_LABELS)
        set(arg_LABELS unit)
    endif()
    set(properties TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}")
    if(arg_OUTSIDE AND VOLTIS_OUTSIDE_TESTS)
        voltis_register_alone(${VOLTIS_OUTSIDE_TESTS}/${name} "${arg_SHARDS}" ${properties})
        return()
    endif()
    set(main GTest::gtest_main)
    if(arg_EACH_ALONE)
        list(APPEND arg_SOURCES ${CMAKE_SOURCE_DIR}/tests/support/EachAloneMain.cpp)
        set(main)
    endif()
    voltis_test_program(${name} SOURCES ${arg_SOURCES} LIBS ${arg_LIBS} GTest::gtest ${main})
    if(arg_ONCE AND VOLTIS_UNITS_ELSEWHERE)
        set_target_properties(${name} PROPERTIES EXCLUDE_FROM_ALL ON)
    endif()
    # The C++ library first: otherwise a template instance that it has, too, may come from an archive
    # member of ours, and bring in the very functions that a test replaces.
    target_link_options(${name} PRIVATE -Wl,--no-as-needed,-lstdc++,--as-needed)
    # What the linker took, for tests/mutation/units.py.
    target_link_options(${name} PRIVATE -Wl,-Map=$<TARGET_FILE:${name}>.map)
    if("unit" IN_LIST arg_LABELS)
        add_dependencies(voltis_unit_tests ${name})
    endif()
    if(arg_OUTSIDE)
        add_dependencies(voltis_outside_tests ${name})
    endif()
    if(arg_UNITY)
        set_target_properties(${name} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE ${arg_UNITY})
        if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
            # to it, only the outermost file is not a header
            target_compile_options(${name} PRIVATE -Wno-subobject-linkage)
        endif()
    endif()
    if(arg_ONCE AND VOLTIS_UNITS_ELSEWHERE)
        return()
    endif()
    if(arg_EACH_ALONE)
        voltis_register_alone($<TARGET_FILE:${name}> "${arg_SHARDS}" ${properties})
        return()
    endif()
    if(arg_WHOLE)
        set(arg_TOGETHER *)
    endif()
    list(JOIN arg_TOGETHER ":" together)
    if(together)
        add_test(NAME ${name} COMMAND ${name} --gtest_filter=${together})
        set_tests_properties(${name} PROPERTIES ${properties})
    endif()
    if(NOT arg_WHOLE)
        gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 TEST_FILTER "-${together}"
            PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS ${arg_LABELS})
    endif()
endfunction()

# What tests from outside take this build's programs from: tests/support/Programs.h.
function(voltis_program_paths variable)
    set(paths VOLTIS_PATH=$<TARGET_FILE:voltis>)
    if(VOLTIS_TOOLS)
        list(APPEND paths VOLTISCTL_PATH=$<TARGET_FILE:voltisctl>)
    endif()
    if(VOLTIS_SERVICE)
        list(APPEND paths VOLTISD_PATH=$<TARGET_FILE:voltisd>)
    endif()
    set(${variable} "${paths}" PARENT_SCOPE)
endfunction()

# Tests of ctest for a program that has each of its own alone; from voltis_add_test.
function(voltis_register_alone program shards)
    if(NOT shards)
        set(shards 1)
    endif()
    math(EXPR last "${shards} - 1")
    foreach(i RANGE ${last})
        set(test ${name})
        if(shards GREATER 1)
            math(EXPR number "${i} + 1")
            string(APPEND test "_${number}_of_${shards}")
        endif()
        add_test(NAME ${test} COMMAND ${CMAKE_CROSSCOMPILING_EMULATOR} ${program})
        voltis_program_paths(environment)
        # by these, gtest's own main would divide them as well
        list(APPEND environment GTEST_TOTAL_SHARDS=${shards} GTEST_SHARD_INDEX=${i})
        set_tests_properties(${test} PROPERTIES
            ${ARGN} ENVIRONMENT "${environment}" COST ${VOLTIS_COST_LONG})
    endforeach()
endfunction()

# The linker redirects calls of these functions to the program's own __wrap_ functions.
function(voltis_wrap name)
    foreach(call ${ARGN})
        target_link_options(${name} PRIVATE -Wl,--wrap=${call})
    endforeach()
endfunction()

# ctest starts what costs most first, so that no long test is left over at the end.
set(VOLTIS_COST_LONG 100)

# A program that prints one line with its counts: <name>_sample belongs to the usual tests,
# <name>_full to the long ones. With OUTSIDE as above.
function(voltis_add_fault_test name)
    cmake_parse_arguments(arg "OUTSIDE" "TIMEOUT;PROCESSORS" "SOURCES;LIBS" ${ARGN})
    set(program ${name})
    if(arg_OUTSIDE AND VOLTIS_OUTSIDE_TESTS)
        set(program ${VOLTIS_OUTSIDE_TESTS}/${name})
    else()
        set(VOLTIS_TESTS_PCH)  # of no use without gtest
        voltis_test_program(${name} SOURCES ${arg_SOURCES} LIBS ${arg_LIBS})
    endif()
    if(arg_OUTSIDE AND NOT VOLTIS_OUTSIDE_TESTS)
        add_dependencies(voltis_outside_tests ${name})
    endif()
    add_test(NAME ${name}_sample COMMAND ${program})
    set_tests_properties(${name}_sample PROPERTIES
        LABELS faults TIMEOUT ${arg_TIMEOUT} PROCESSORS ${arg_PROCESSORS} COST ${VOLTIS_COST_LONG})
    add_test(NAME ${name}_full COMMAND ${program} --full)
    set_tests_properties(${name}_full PROPERTIES
        LABELS soak TIMEOUT 3600 PROCESSORS ${arg_PROCESSORS})
    voltis_program_paths(environment)
    set_tests_properties(${name}_sample ${name}_full PROPERTIES ENVIRONMENT "${environment}")
endfunction()
