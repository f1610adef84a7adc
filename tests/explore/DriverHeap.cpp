// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/explore/DriverHeap.h"

#include <sys/mman.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>

// The C library's own, by the names that it exports for replacements of malloc
// (glibc manual, "Replacing malloc").
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
}

namespace explore::heap {

namespace {

// Slots of 16, 32, ... bytes; a block takes the first free slot of the smallest size that it fits
// in.
constexpr std::size_t sizes = 13;
constexpr std::size_t slots = 256;  // of each size
constexpr std::size_t wordBits = 64;

constexpr std::size_t SlotSize(std::size_t size) {
    return std::size_t{16} << size;
}
/// From the base to the first slot of that size.
constexpr std::size_t RegionOf(std::size_t size) {
    return (SlotSize(size) - 16) * slots;
}
constexpr std::size_t capacity = RegionOf(sizes);

struct Slots {
    std::uint64_t used[slots / wordBits];  // a bit for each
};

constexpr std::size_t mapSize = sizes * sizeof(Slots);

std::uint8_t* base = nullptr;
Slots* allSlots =
    nullptr;  // after the regions: not in the data segment, which is put back by itself
bool inside = false;

bool Owns(const void* block) {
    const auto* byte = static_cast<const std::uint8_t*>(block);
    return base != nullptr && byte >= base && byte < base + capacity;
}

void Prepare() {
    if (base != nullptr) return;
    void* const memory = mmap(nullptr, capacity + mapSize, PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) abort();
    base = static_cast<std::uint8_t*>(memory);
    allSlots = reinterpret_cast<Slots*>(base + capacity);
}

// The driver must not take its own way without memory because this heap is small.
[[noreturn]] void GiveUp() {
    constexpr char problem[] = "The heap of the explored driver is full\n";
    if (write(STDERR_FILENO, problem, sizeof problem - 1) < 0) abort();
    abort();
}

std::size_t SizeFor(std::size_t bytes) {
    std::size_t size = 0;
    while (size < sizes && SlotSize(size) < bytes) ++size;
    return size;
}

std::size_t SizeOf(const void* block) {
    const auto offset = static_cast<std::size_t>(static_cast<const std::uint8_t*>(block) - base);
    std::size_t size = 0;
    while (RegionOf(size + 1) <= offset) ++size;
    return size;
}

void* Allocate(std::size_t bytes) {
    const std::size_t size = SizeFor(bytes);
    if (size == sizes) GiveUp();
    for (std::size_t word = 0; word < slots / wordBits; ++word) {
        std::uint64_t& used = allSlots[size].used[word];
        if (~used == 0) continue;
        const auto bit = static_cast<std::size_t>(std::countr_one(used));
        used |= std::uint64_t{1} << bit;
        return base + RegionOf(size) + (word * wordBits + bit) * SlotSize(size);
    }
    GiveUp();
}

void Release(void* block) {
    const std::size_t size = SizeOf(block);
    const auto offset = static_cast<std::size_t>(static_cast<std::uint8_t*>(block) - base);
    const std::size_t slot = (offset - RegionOf(size)) / SlotSize(size);
    allSlots[size].used[slot / wordBits] &= ~(std::uint64_t{1} << slot % wordBits);
    memset(block, 0, SlotSize(size));
}

void* Resize(void* block, std::size_t bytes) {
    void* const other = Allocate(bytes);
    if (block == nullptr) return other;
    const std::size_t had = SlotSize(SizeOf(block));
    memcpy(other, block, had < bytes ? had : bytes);
    Release(block);
    return other;
}

/// Calls action with each slot in use.
template <typename Action>
void ForEach(Action action) {
    for (std::size_t size = 0; size < sizes; ++size) {
        for (std::size_t word = 0; word < slots / wordBits; ++word) {
            std::uint64_t used = allSlots[size].used[word];
            for (; used != 0; used &= used - 1) {
                const auto bit = static_cast<std::size_t>(std::countr_zero(used));
                const std::size_t slot = word * wordBits + bit;
                action(base + RegionOf(size) + slot * SlotSize(size), SlotSize(size));
            }
        }
    }
}

}  // namespace

void Enter() {
    Prepare();
    inside = true;
}

void Leave() {
    inside = false;
}

void Save(std::vector<std::uint8_t>& bytes) {
    Prepare();
    const auto* const map = reinterpret_cast<const std::uint8_t*>(allSlots);
    bytes.insert(bytes.end(), map, map + mapSize);
    ForEach([&](const std::uint8_t* slot, std::size_t size) {
        bytes.insert(bytes.end(), slot, slot + size);
    });
}

void Clear() {
    Prepare();
    ForEach([](std::uint8_t* slot, std::size_t size) { memset(slot, 0, size); });
    memset(allSlots, 0, mapSize);
}

std::size_t Restore(std::span<const std::uint8_t> bytes) {
    Clear();
    memcpy(allSlots, bytes.data(), mapSize);
    std::size_t at = mapSize;
    ForEach([&](std::uint8_t* slot, std::size_t size) {
        memcpy(slot, bytes.data() + at, size);
        at += size;
    });
    return at;
}

}  // namespace explore::heap

namespace heap = explore::heap;

extern "C" {

void* malloc(std::size_t size) {
    return heap::inside ? heap::Allocate(size) : __libc_malloc(size);
}

void free(void* block) {
    if (heap::Owns(block))
        heap::Release(block);
    else
        __libc_free(block);
}

void* calloc(std::size_t count, std::size_t size) {
    if (!heap::inside) return __libc_calloc(count, size);
    std::size_t bytes = 0;
    if (__builtin_mul_overflow(count, size, &bytes)) return nullptr;
    return heap::Allocate(bytes);  // free slots are zero
}

void* realloc(void* block, std::size_t size) {
    if (heap::Owns(block) || (block == nullptr && heap::inside)) return heap::Resize(block, size);
    return __libc_realloc(block, size);
}

// The driver asks for no alignment of its own.
void* memalign(std::size_t alignment, std::size_t size) {
    if (heap::inside && alignment > heap::SlotSize(0)) abort();
    return heap::inside ? heap::Allocate(size) : __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return memalign(alignment, size);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t size) {
    *block = memalign(alignment, size);
    return *block == nullptr ? errno : 0;
}

}  // extern "C"
