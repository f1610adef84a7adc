// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/explore/DriverProcess.h"

#include <cxxabi.h>
#include <sys/mman.h>
#include <ucontext.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <span>

#include "EcrLink.h"
#include "tests/explore/DriverHeap.h"

// The bounds of this program's writable data, as the linker sets them (ld manual, "Source Code
// Reference"; __data_start is the C runtime's).
extern "C" {
extern char __data_start[];
extern char _end[];
}

namespace explore {

namespace {

/// Where to go on: frame, place and stack (GCC manual, "Nonlocal Gotos").
using Place = std::array<void*, 5>;

constexpr std::size_t usualImage = std::size_t{16} << 10;
constexpr std::size_t stackSize = std::size_t{256} << 10;
/// Left over by calls that have returned: cleared, so that later calls find the same there whatever
/// came before. Deeper than any call between two suspensions has been seen to go.
constexpr std::size_t wiped = std::size_t{24} << 10;
/// What __cxa_get_globals returns (Itanium C++ ABI, 2.2.2): the exceptions being handled.
constexpr std::size_t exceptionGlobals = sizeof(void*) + sizeof(unsigned int);

std::span<std::uint8_t> DataSegment() {
    auto* const begin = reinterpret_cast<std::uint8_t*>(__data_start);
    return {begin, static_cast<std::size_t>(_end - __data_start)};
}

/// The lowest address of the caller's frame.
[[gnu::noinline]] std::uint8_t* BelowCaller() {
    return static_cast<std::uint8_t*>(__builtin_frame_address(0));
}

/// A function with a place must not leave for another itself.
[[noreturn, gnu::noinline]] void Leave(Place& place) {
    __builtin_longjmp(place.data(), 1);
}

void AddTo(std::vector<std::uint8_t>& bytes, std::span<const std::uint8_t> more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

}  // namespace

struct DriverProcess::Image {
    std::vector<std::uint8_t> bytes;  // data segment, heap and stack
    Place place{};
    std::uint8_t exceptions[exceptionGlobals] = {};
    Call pending;
    Hash hash;
};

/// On the explorer's heap, so that no image contains it.
struct DriverProcess::Machine {
    RunFiles files;
    DriverEnd end;
    // Not swapcontext, which asks the kernel for the signal mask each time.
    Place explorer{}, driver{};
    ucontext_t beginning{};  // of every run, with the same registers
    bool begun = false;
    std::uint8_t* stack = nullptr;
    /// Of the driver's stack while it is suspended; all is zero below.
    std::uint8_t* low = nullptr;
    Call pending;
    bool answer = true;
    std::vector<std::uint8_t> pristine;  // the data segment before the first run
    std::vector<std::uint8_t> masked;    // for the hash
    std::shared_ptr<const Image> live;   // the image that the driver is in, while that is one

    std::span<std::uint8_t> StackInUse() const {
        return {low, static_cast<std::size_t>(stack + stackSize - low)};
    }
};

namespace {

DriverProcess* running = nullptr;  // constant while there is one

/// Sets what the hash must not depend on to zero, in a copy of the data segment.
class Masked {
  public:
    explicit Masked(std::vector<std::uint8_t>& copy) : copy_(copy) {}

    template <typename Variable>
    void Clear(const Variable& variable) {
        Clear(reinterpret_cast<const std::uint8_t*>(&variable), sizeof variable);
    }
    void Clear(const std::uint8_t* begin, std::size_t size) {
        const std::span<std::uint8_t> data = DataSegment();
        if (begin < data.data() || begin + size > data.data() + data.size()) return;
        std::memset(copy_.data() + (begin - data.data()), 0, size);
    }

  private:
    std::vector<std::uint8_t>& copy_;
};

/// The statistics are for the log alone, but for the lost answers while the register is looked for.
/// A record of the register is read again before it is used, unless it is marked valid. The buffer
/// of frames is filled before each use.
void MaskWhatDoesNotCount(std::vector<std::uint8_t>& copy, const Call& pending) {
    Masked masked(copy);
    for (const int* counter : {&framesSend, &framesReceived, &bsyCount, &nakCount, &garbageCount})
        masked.Clear(*counter);
    const bool lookingForRegister = lostRespRetryCount == 0;
    if (!lookingForRegister) masked.Clear(lostRespCount);
    if (!ecrStatusValid) masked.Clear(ecrStatus);
    if (pending.kind == Call::Kind::Write) masked.Clear(pending.block, ioBufferSize);
}

}  // namespace

DriverProcess::DriverProcess() : machine_(std::make_unique<Machine>()) {
    void* const stack =
        mmap(nullptr, stackSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (stack == MAP_FAILED) abort();
    machine_->stack = static_cast<std::uint8_t*>(stack);
    machine_->low = machine_->stack + stackSize;
    running = this;
    PlugIn(this);
    getcontext(&machine_->beginning);
    machine_->beginning.uc_stack.ss_sp = machine_->stack;
    machine_->beginning.uc_stack.ss_size = stackSize;
    machine_->beginning.uc_link = nullptr;
    makecontext(&machine_->beginning, &DriverProcess::Body, 0);
    heap::Clear();  // its place is in the data segment
    machine_->pristine.assign(DataSegment().begin(), DataSegment().end());
}

DriverProcess::~DriverProcess() {
    std::ranges::copy(machine_->pristine, DataSegment().begin());
    PlugIn(nullptr);
    running = nullptr;
    munmap(machine_->stack, stackSize);
}

void DriverProcess::Body() {
    DriverProcess& self = *running;
    heap::Enter();
    self.machine_->end = RunDriver(self.machine_->files);
    for (;;) self.Suspend(Call::Kind::Ended, nullptr, 0);
}

const Call& DriverProcess::Start(const RunFiles& files) {
    Machine& machine = *machine_;
    machine.files = files;
    std::ranges::copy(machine.pristine, DataSegment().begin());
    heap::Clear();
    std::ranges::fill(machine.StackInUse(), std::uint8_t{0});
    std::memset(abi::__cxa_get_globals(), 0, exceptionGlobals);
    machine.begun = false;
    return SwitchIn();
}

const Call& DriverProcess::Resume(bool answer) {
    machine_->answer = answer;
    return SwitchIn();
}

const Call& DriverProcess::Pending() const {
    return machine_->pending;
}

DriverEnd DriverProcess::End() const {
    return machine_->end;
}

const Call& DriverProcess::SwitchIn() {
    Machine& machine = *machine_;
    machine.live.reset();
    SwitchOver();
    std::uint8_t* const bottom = std::max(machine.stack, machine.low - wiped);
    std::memset(bottom, 0, static_cast<std::size_t>(machine.low - bottom));
    return machine.pending;
}

// Nothing is in this frame that could differ when it is returned to.
void DriverProcess::SwitchOver() {
    if (__builtin_setjmp(machine_->explorer.data()) != 0) return;
    if (machine_->begun) Leave(machine_->driver);
    machine_->begun = true;
    setcontext(&machine_->beginning);
}

// Not a Call, whose padding would be garbage on the stack.
bool DriverProcess::Suspend(Call::Kind kind, std::uint8_t* block, std::size_t size) {
    Machine& machine = *machine_;
    heap::Leave();
    machine.pending.kind = kind;
    machine.pending.block = block;
    machine.pending.size = size;
    machine.low = BelowCaller();
    if (__builtin_setjmp(machine.driver.data()) == 0) Leave(machine.explorer);
    heap::Enter();
    return machine.answer;
}

std::shared_ptr<const DriverProcess::Image> DriverProcess::Save() {
    Machine& machine = *machine_;
    if (machine.live) return machine.live;
    auto image = std::make_shared<Image>();
    const std::span<std::uint8_t> data = DataSegment();
    image->bytes.reserve(usualImage);
    AddTo(image->bytes, data);
    heap::Save(image->bytes);
    AddTo(image->bytes, machine.StackInUse());
    image->place = machine.driver;
    std::memcpy(image->exceptions, abi::__cxa_get_globals(), exceptionGlobals);
    image->pending = machine.pending;

    machine.masked.assign(data.begin(), data.end());
    MaskWhatDoesNotCount(machine.masked, machine.pending);
    image->hash.Add(machine.masked);
    image->hash.Add(std::span(image->bytes).subspan(data.size()));
    image->hash.Add(image->exceptions);
    image->hash.Add(
        {reinterpret_cast<const std::uint8_t*>(image->place.data()), sizeof image->place});
    machine.live = image;
    return image;
}

void DriverProcess::Restore(const std::shared_ptr<const Image>& image) {
    Machine& machine = *machine_;
    if (machine.live == image) return;
    const std::span<const std::uint8_t> bytes(image->bytes);
    std::memcpy(DataSegment().data(), bytes.data(), DataSegment().size());
    const std::span<const std::uint8_t> rest = bytes.subspan(DataSegment().size());
    const std::span<const std::uint8_t> stack = rest.subspan(heap::Restore(rest));
    std::ranges::fill(machine.StackInUse(), std::uint8_t{0});
    machine.low = machine.stack + stackSize - stack.size();
    std::ranges::copy(stack, machine.low);
    machine.driver = image->place;
    machine.begun = true;
    std::memcpy(abi::__cxa_get_globals(), image->exceptions, exceptionGlobals);
    machine.pending = image->pending;
    machine.live = image;
}

const Hash& DriverProcess::HashOf(const Image& image) {
    return image.hash;
}

void DriverProcess::Open() {
    Suspend(Call::Kind::Open, nullptr, 0);
}

void DriverProcess::Close() {
    Suspend(Call::Kind::Close, nullptr, 0);
}

bool DriverProcess::Read(std::uint8_t* block, std::size_t size) {
    return Suspend(Call::Kind::Read, block, size);
}

void DriverProcess::Write(const std::uint8_t* block, std::size_t size) {
    Suspend(Call::Kind::Write, const_cast<std::uint8_t*>(block), size);
}

}  // namespace explore
