// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/support/ScarceMemory.h"

#include <cstdint>
#include <cstdlib>
#include <new>

namespace {

std::size_t largest = SIZE_MAX;

}  // namespace

ScarceMemory::ScarceMemory(std::size_t largestBlock) {
    largest = largestBlock;
}

ScarceMemory::~ScarceMemory() {
    largest = SIZE_MAX;
}

// The program's own functions go before the C++ library's. All that may meet: the library's own of
// one kind do not fit these of another under the address sanitizer.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return size > largest ? nullptr : malloc(size == 0 ? 1 : size);
}

void* operator new(std::size_t size) {
    void* block = operator new(size, std::nothrow);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

void operator delete(void* block, const std::nothrow_t&) noexcept {
    free(block);
}

void operator delete(void* block) noexcept {
    free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    free(block);
}
