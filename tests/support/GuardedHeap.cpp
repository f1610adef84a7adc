// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/support/GuardedHeap.h"

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_calloc(std::size_t count, std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void __real_free(void* block);
char* __real_strdup(const char* text);
}

namespace {

using Byte = unsigned char;

constexpr std::size_t page = 4096;
constexpr std::size_t slotCount = 64;
constexpr std::size_t roomBefore = page / 4;
constexpr Byte beside = 0xA5;  // around a living allocation
constexpr Byte freed = 0xDD;

/// One page for one allocation.
struct Slot {
    Byte* data = nullptr;  // null: free
    std::size_t size = 0;
    bool roomy = false;
};

// Module state. The pages alternate: guard, slot 0, guard, slot 1, ..., guard.
std::optional<GuardedHeap::Place> current;
std::array<Slot, slotCount> slots;
Byte* arena = nullptr;
std::size_t nextSlot = 0;  // round about, so that a freed page stays freed for long
std::size_t damages = 0;

Byte* PageOf(std::size_t slot) {
    return arena + (2 * slot + 1) * page;
}

[[noreturn]] void GiveUp(const char* why) {
    fprintf(stderr, "guarded heap: %s\n", why);
    abort();
}

void MakeArena() {
    void* const pages =
        mmap(nullptr, (2 * slotCount + 1) * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) GiveUp("no memory");
    arena = static_cast<Byte*>(pages);
    for (std::size_t i = 0; i < slotCount; ++i) {
        if (mprotect(PageOf(i), page, PROT_READ | PROT_WRITE) != 0) GiveUp("no memory");
        memset(PageOf(i), freed, page);
    }
}

bool AllAre(const Byte* from, const Byte* to, Byte value) {
    const auto count = static_cast<std::size_t>(to - from);
    return count == 0 || (*from == value && memcmp(from, from + 1, count - 1) == 0);
}

Byte* PlaceIn(Byte* slotPage, std::size_t size) {
    switch (*current) {
        case GuardedHeap::Place::BeforeGuard:
            return slotPage + page - size;
        case GuardedHeap::Place::BehindGuard:
            return slotPage;
        case GuardedHeap::Place::Roomy:
            return slotPage + roomBefore;
    }
    GiveUp("no such place");
}

void* Allocate(std::size_t size) {
    size = std::max<std::size_t>(size, 1);
    if (size > page / 2) GiveUp("the allocation is larger than expected");
    for (std::size_t tries = 0; slots[nextSlot].data != nullptr; ++tries) {
        if (tries == slotCount) GiveUp("too many allocations live");
        nextSlot = (nextSlot + 1) % slotCount;
    }
    Slot& slot = slots[nextSlot];
    Byte* const slotPage = PageOf(nextSlot);
    nextSlot = (nextSlot + 1) % slotCount;
    if (!AllAre(slotPage, slotPage + page, freed)) ++damages;  // written after it was freed
    slot = {PlaceIn(slotPage, size), size, *current == GuardedHeap::Place::Roomy};
    memset(slotPage, slot.roomy ? 0 : beside, page);
    return slot.data;
}

bool IsInArena(const void* block) {
    const auto at = reinterpret_cast<std::uintptr_t>(block);
    const auto begin = reinterpret_cast<std::uintptr_t>(arena);
    return arena != nullptr && at >= begin && at < begin + (2 * slotCount + 1) * page;
}

void Free(void* block) {
    const auto index = static_cast<std::size_t>(static_cast<Byte*>(block) - arena) / page / 2;
    Slot& slot = slots[std::min(index, slotCount - 1)];
    if (slot.data != block) {
        ++damages;
        return;
    }
    Byte* const slotPage = PageOf(index);
    const Byte* const end = slot.data + slot.size;
    if (!slot.roomy &&
        !(AllAre(slotPage, slot.data, beside) && AllAre(end, slotPage + page, beside))) {
        ++damages;
    }
    memset(slotPage, freed, page);
    slot = Slot();
}

}  // namespace

GuardedHeap::GuardedHeap(Place place) {
    if (current) GiveUp("one scope at a time");
    if (arena == nullptr) MakeArena();
    current = place;
}

GuardedHeap::~GuardedHeap() {
    current.reset();
}

std::size_t GuardedHeap::Live() {
    return static_cast<std::size_t>(std::count_if(
        slots.begin(), slots.end(), [](const Slot& slot) { return slot.data != nullptr; }));
}

std::size_t GuardedHeap::Damages() {
    return damages;
}

extern "C" {

void* __wrap_malloc(std::size_t size) {
    return current ? Allocate(size) : __real_malloc(size);
}

void* __wrap_calloc(std::size_t count, std::size_t size) {
    if (!current) return __real_calloc(count, size);
    return memset(Allocate(count * size), 0, count * size);
}

void __wrap_free(void* block) {
    if (IsInArena(block))
        Free(block);
    else
        __real_free(block);
}

void* __wrap_realloc(void* block, std::size_t size) {
    if (!IsInArena(block)) return __real_realloc(block, size);
    GiveUp("realloc of a guarded allocation");
}

char* __wrap_strdup(const char* text) {
    if (!current) return __real_strdup(text);
    const std::size_t size = strlen(text) + 1;
    return static_cast<char*>(memcpy(Allocate(size), text, size));
}

}  // extern "C"
