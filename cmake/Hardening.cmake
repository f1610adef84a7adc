# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later

# Warnings, hardening and instrumentation for every target of the tree.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # g++ 12 sees overlapping copies in `"text" + std::string` that are none (GCC bug 105651).
    add_compile_options(-Wno-restrict)
    # On 32-bit ARM it tells, again and again, of a change of rules between versions 6 and 7.
    add_compile_options(-Wno-psabi)
else()
    add_compile_options(-Wreserved-identifier)
endif()
# As Debian builds; -O3 takes longer to compile and is no faster here.
string(REPLACE "-O3" "-O2" CMAKE_CXX_FLAGS_RELEASE "${CMAKE_CXX_FLAGS_RELEASE}")
# Source places in messages are relative to the tree, whatever folder it was built in.
add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)

# Files of 2 GiB and more, on 32 bits as well.
add_compile_definitions(_FILE_OFFSET_BITS=64)

# _FORTIFY_SOURCE needs optimisation, so only Release has it; the rest costs nothing elsewhere.
add_compile_options(-fstack-protector-strong)
add_compile_options($<$<CONFIG:Release>:-U_FORTIFY_SOURCE> $<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
if(NOT VOLTIS_SANITIZE)
    add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
endif()

if(VOLTIS_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer -O1
        -gline-tables-only)
    add_link_options(-fsanitize=address,undefined)
    # Instrumented programs are large, and lld links them soonest. Release keeps the usual linker, whose
    # maps tests/mutation reads.
    find_program(LLD_LINKER ld.lld)
    if(LLD_LINKER AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        add_link_options(-fuse-ld=lld)
    endif()
endif()
if(VOLTIS_COVERAGE)
    add_compile_options(--coverage -O0 -fprofile-update=atomic)
    # A child that ends by _exit writes its counters by itself; the call must be there to be found.
    add_link_options(--coverage -Wl,-u,__gcov_dump)
endif()
