// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A heap that notices what a library without instrumentation does outside its allocations. It
// serves the calls of an executable that is linked with --wrap for malloc, calloc, realloc, free
// and strdup; everything else, and everything outside a scope, has the process's own heap.
#pragma once

#include <cstddef>

class GuardedHeap {
  public:
    enum class Place {
        BeforeGuard,  ///< each allocation ends where a page begins that may not be touched
        BehindGuard,  ///< each allocation begins where such a page ends
        Roomy,        ///< zero bytes before and after each allocation take small overruns
    };

    /// Until the end of the scope allocations are placed like this. One scope at a time.
    explicit GuardedHeap(Place place);
    ~GuardedHeap();
    GuardedHeap(const GuardedHeap&) = delete;
    GuardedHeap& operator=(const GuardedHeap&) = delete;

    /// Allocations of any scope that are not freed yet.
    static std::size_t Live();
    /// Writes beside or after the life of an allocation, and frees of what was not allocated, since
    /// the start of the process. Overruns of Roomy allocations are not counted.
    static std::size_t Damages();
};
