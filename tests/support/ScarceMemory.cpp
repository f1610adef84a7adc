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

// The program's own pair goes before the C++ library's.
void* operator new(std::size_t size) {
    void* block = size > largest ? nullptr : malloc(size == 0 ? 1 : size);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

void operator delete(void* block) noexcept {
    free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    free(block);
}
