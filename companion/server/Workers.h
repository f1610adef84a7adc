// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A process for each register, which works off its queue. Nothing here ever kills one: it ends by
// itself when its wake pipe closes, after the receipt that it is printing. So it does when this
// process is killed.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "companion/server/Descriptor.h"
#include "companion/server/Loop.h"

namespace server {

struct WorkersOptions {
    /// Before a worker that has died is started again; each time twice as long, up to the longest.
    std::chrono::milliseconds pause{500};
    std::chrono::milliseconds longestPause{60'000};
    /// Who has run so long begins with the first pause again.
    std::chrono::milliseconds healthy{60'000};
    /// How many descriptors a worker may have open, at most as many as this process.
    std::size_t descriptors = std::numeric_limits<std::size_t>::max();
};

class Workers {
  public:
    /// The program and its arguments, for a register. Path and all, as execv() takes them.
    using Command = std::function<std::vector<std::string>(const std::string& registerName)>;
    /// What a worker finds open, besides its standard streams: a byte to read where there may be
    /// work, and its end when this is to end; and where it writes a byte when a job has changed.
    static constexpr int wakeFd = 3;
    static constexpr int tellFd = 4;

    /// The loop must outlive it.
    Workers(Loop& loop, Command command, WorkersOptions options = {});
    ~Workers();
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    /// A worker has told that a job has changed.
    void OnTold(std::function<void(const std::string& registerName)> call) {
        onTold_ = std::move(call);
    }
    /// A worker could not be started or has ended, although nobody wanted that; and how.
    void OnDied(std::function<void(const std::string& registerName, const std::string& how)> call) {
        onDied_ = std::move(call);
    }

    /// Does nothing where there is one. One that is ending is started again when it has ended.
    void Start(const std::string& registerName);
    /// One that has died and waits to be started again does not wait longer than the first pause.
    void Wake(const std::string& registerName);
    /// Closes its wake pipe.
    void Stop(const std::string& registerName);
    void StopAll();

    /// Whether its worker runs at this moment.
    bool IsAtWork(const std::string& registerName) const;
    /// The registers whose workers have not ended, or will be started again.
    std::vector<std::string> Running() const;

  private:
    struct Worker {
        std::string registerName;
        bool isWanted = true;
        Descriptor process;  // none: it will be started after a pause
        Descriptor wake;
        Descriptor tell;
        std::chrono::steady_clock::time_point started, ended;
        std::chrono::steady_clock::time_point due;  // to be started again
        std::chrono::milliseconds pause{0};
        Loop::TimerId timer = 0;
    };

    void Spawn(Worker& worker);
    void SpawnAt(Worker& worker, std::chrono::milliseconds pause);
    void Bury();
    void TakeNews(Worker& worker);
    void TakeEnd(const std::string& registerName);
    void LetGo(Worker& worker);
    void Died(Worker& worker, const std::string& how);

    Loop& loop_;
    Command command_;
    WorkersOptions options_;
    std::function<void(const std::string&)> onTold_ = [](const std::string&) {};
    std::function<void(const std::string&, const std::string&)> onDied_ = [](const std::string&,
                                                                             const std::string&) {};
    std::map<std::string, Worker> workers_;
    std::vector<pid_t> unwatched_;
    Loop::TimerId burial_ = 0;
};

}  // namespace server
