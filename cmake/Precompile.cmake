# SPDX-FileCopyrightText: VOLTIS developers
# SPDX-License-Identifier: GPL-3.0-or-later

# Where a folder has many small files, most of the time to compile them goes into the headers of the
# C++ library. The first target reads them for all of the targets, which must have the same flags.
function(voltis_precompile first)
    if(NOT VOLTIS_PRECOMPILE)
        return()
    endif()
    target_precompile_headers(${first} PRIVATE
        <algorithm> <array> <chrono> <cstdint> <filesystem> <fstream> <functional> <map> <memory> <optional>
        <sstream> <stdexcept> <string> <utility> <vector>)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        target_compile_options(${first} PRIVATE -fpch-preprocess)  # so that ccache can tell the headers apart
    endif()
    foreach(target ${ARGN})
        target_precompile_headers(${target} REUSE_FROM ${first})
    endforeach()
endfunction()

# For a folder whose code waits for people, disks and lines more than it computes.
macro(voltis_compile_soon)
    if(VOLTIS_SANITIZE)
        add_compile_options(-O0)
    else()
        add_compile_options($<$<NOT:$<CONFIG:Debug>>:-O1>)
    endif()
endmacro()
