// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/server/Workers.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

#include "companion/server/DescriptorLimit.h"

namespace server {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

[[noreturn]] void Fail(const char* what, int code = errno) {
    throw std::system_error(code, std::generic_category(), what);
}

// --- pipes -----------------------------------------------------------------------------------

struct Pipe {
    Descriptor from;
    Descriptor to;
};

// Above those that the child gets.
Descriptor Higher(const Descriptor& low) {
    constexpr int lowest = 16;
    Descriptor higher(fcntl(low.Fd(), F_DUPFD_CLOEXEC, lowest));
    if (!higher.IsOpen()) Fail("pipe");
    return higher;
}

Pipe OpenPipe() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) Fail("pipe");
    const Descriptor from(ends[0]);
    const Descriptor to(ends[1]);
    return {Higher(from), Higher(to)};
}

// This process must never wait for a worker.
void NeverWait(const Descriptor& end) {
    if (fcntl(end.Fd(), F_SETFL, O_NONBLOCK) != 0) Fail("pipe");
}

// --- processes -------------------------------------------------------------------------------

class SpawnAttributes {
  public:
    // Not what this process does with signals, and none that a terminal sends to its group.
    SpawnAttributes() {
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setpgroup(&attributes_, 0);
        constexpr short flags =
            POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP;
        posix_spawnattr_setflags(&attributes_, flags);
    }
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    const posix_spawnattr_t* Get() const { return &attributes_; }

  private:
    posix_spawnattr_t attributes_ = {};
};

class SpawnActions {
  public:
    SpawnActions(int wake, int tell) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_adddup2(&actions_, wake, Workers::wakeFd);
        posix_spawn_file_actions_adddup2(&actions_, tell, Workers::tellFd);
        posix_spawn_file_actions_addclosefrom_np(&actions_, Workers::tellFd + 1);
    }
    ~SpawnActions() { posix_spawn_file_actions_destroy(&actions_); }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
    const posix_spawn_file_actions_t* Get() const { return &actions_; }

  private:
    posix_spawn_file_actions_t actions_ = {};
};

pid_t Spawned(std::vector<std::string> command, int wake, int tell) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& argument : command) arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    pid_t pid = 0;
    const int code = posix_spawn(&pid, arguments[0], SpawnActions(wake, tell).Get(),
                                 SpawnAttributes().Get(), arguments.data(), environ);
    if (code != 0) Fail(command[0].c_str(), code);
    return pid;
}

Descriptor ProcessOf(pid_t pid) {
    Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    if (!process.IsOpen()) Fail("pidfd");
    return process;
}

std::string HowItEnded(const siginfo_t& end) {
    if (end.si_code == CLD_EXITED) return "exit status " + std::to_string(end.si_status);
    return "signal " + std::to_string(end.si_status);
}

}  // namespace

Workers::Workers(Loop& loop, Command command, WorkersOptions options)
    : loop_(loop), command_(std::move(command)), options_(options) {}

Workers::~Workers() {
    for (auto& [name, worker] : workers_) LetGo(worker);
    loop_.Cancel(burial_);
}

void Workers::Start(const std::string& registerName) {
    const auto [at, isNew] = workers_.try_emplace(registerName);
    at->second.isWanted = true;
    if (!isNew) return;
    at->second.registerName = registerName;
    at->second.pause = options_.pause;
    Spawn(at->second);
}

void Workers::Spawn(Worker& worker) {
    pid_t pid = 0;
    try {
        Pipe wake = OpenPipe();
        Pipe tell = OpenPipe();
        NeverWait(wake.to);
        NeverWait(tell.from);
        worker.started = Clock::now();
        std::vector<std::string> command = command_(worker.registerName);
        {
            const LowerDescriptorLimit ofWorkers(options_.descriptors);
            pid = Spawned(std::move(command), wake.from.Fd(), tell.to.Fd());
        }
        worker.process = ProcessOf(pid);
        worker.wake = std::move(wake.to);
        worker.tell = std::move(tell.from);
        loop_.Watch(worker.tell.Fd(), [this, &worker] { TakeNews(worker); });
        loop_.Watch(worker.process.Fd(), [this, name = worker.registerName] { TakeEnd(name); });
    } catch (const std::exception& failure) {
        LetGo(worker);
        if (pid > 0) unwatched_.push_back(pid);
        Bury();
        Died(worker, failure.what());
    }
}

// A process that cannot be watched ends soon, for its wake pipe is closed.
void Workers::Bury() {
    std::erase_if(unwatched_, [](pid_t pid) { return waitpid(pid, nullptr, WNOHANG) != 0; });
    loop_.Cancel(burial_);
    if (!unwatched_.empty()) burial_ = loop_.After(options_.pause, [this] { Bury(); });
}

void Workers::Wake(const std::string& registerName) {
    const auto worker = workers_.find(registerName);
    if (worker == workers_.end()) return;
    if (!worker->second.process.IsOpen()) return SpawnAt(worker->second, options_.pause);
    if (!worker->second.wake.IsOpen()) return;
    // A full pipe says as much.
    [[maybe_unused]] const ssize_t ignored = write(worker->second.wake.Fd(), "", 1);
}

// So long after its end, if it is not to be sooner.
void Workers::SpawnAt(Worker& worker, milliseconds pause) {
    const auto due = worker.ended + pause;
    if (due >= worker.due) return;
    worker.due = due;
    loop_.Cancel(worker.timer);
    const auto left = std::chrono::ceil<milliseconds>(due - Clock::now());
    worker.timer = loop_.After(std::max(left, milliseconds(0)), [this, &worker] { Spawn(worker); });
}

void Workers::Stop(const std::string& registerName) {
    const auto at = workers_.find(registerName);
    if (at == workers_.end()) return;
    Worker& worker = at->second;
    worker.isWanted = false;
    worker.wake.Close();
    if (worker.process.IsOpen()) return;
    loop_.Cancel(worker.timer);
    workers_.erase(at);
}

void Workers::StopAll() {
    for (const std::string& name : Running()) Stop(name);
}

std::vector<std::string> Workers::Running() const {
    std::vector<std::string> names;
    names.reserve(workers_.size());
    for (const auto& [name, worker] : workers_) names.push_back(name);
    return names;
}

bool Workers::IsAtWork(const std::string& registerName) const {
    const auto worker = workers_.find(registerName);
    return worker != workers_.end() && worker->second.process.IsOpen();
}

// However many jobs have changed, it is told once.
void Workers::TakeNews(Worker& worker) {
    std::array<char, 64> bytes{};
    bool isTold = false;
    ssize_t size = 0;
    while ((size = read(worker.tell.Fd(), bytes.data(), bytes.size())) > 0) isTold = true;
    if (size == 0) {  // its end follows
        loop_.Forget(worker.tell.Fd());
        worker.tell.Close();
    }
    if (isTold) onTold_(std::string(worker.registerName));
}

void Workers::TakeEnd(const std::string& registerName) {
    const auto at = workers_.find(registerName);
    Worker& worker = at->second;
    siginfo_t end = {};
    const auto process = static_cast<id_t>(worker.process.Fd());
    const bool isOurs = waitid(P_PIDFD, process, &end, WEXITED | WNOHANG) == 0;
    if (isOurs && end.si_pid == 0) return;
    const bool wasStopped = !worker.wake.IsOpen();
    if (worker.tell.IsOpen()) TakeNews(worker);
    LetGo(worker);
    if (!worker.isWanted) {
        workers_.erase(at);
    } else if (wasStopped) {
        Spawn(worker);
    } else {
        Died(worker, isOurs ? HowItEnded(end) : "ended, and nobody can tell how");
    }
}

void Workers::LetGo(Worker& worker) {
    for (Descriptor* const watched : {&worker.tell, &worker.process}) {
        if (watched->IsOpen()) loop_.Forget(watched->Fd());
        watched->Close();
    }
    worker.wake.Close();
    loop_.Cancel(worker.timer);
}

void Workers::Died(Worker& worker, const std::string& how) {
    if (Clock::now() - worker.started >= options_.healthy) worker.pause = options_.pause;
    worker.ended = Clock::now();
    worker.due = Clock::time_point::max();
    SpawnAt(worker, worker.pause);
    worker.pause = std::min(worker.pause * 2, options_.longestPause);
    onDied_(std::string(worker.registerName), how);
}

}  // namespace server
