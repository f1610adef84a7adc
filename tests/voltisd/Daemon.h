// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The shipped service in a process of its own, in a folder that has all that a machine would have.
// Every answer of its interface for programs is held against the description that it gives of that.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/server/Clients.h"
#include "tests/support/TempDir.h"

class Daemon {
  public:
    /// Of a register at that device. Nothing is started yet.
    explicit Daemon(const std::string& device);
    /// Kills it if it is still there.
    ~Daemon();
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    /// voltisd.conf, beside the socket, if there is none in it, the group and the file of tokens.
    void Configure(const std::string& lines) const;
    void Launch();
    /// Returns when it has said where it serves: all that a start does is done. False: it has ended
    /// instead, or said nothing in a minute.
    bool Start();
    void Signal(int signal) const;
    pid_t Process() const { return process_; }
    /// 0: it has none now.
    pid_t Worker() const;
    /// -1: it has not ended in time, or by a signal.
    int WaitForEnd(std::chrono::milliseconds longest = std::chrono::seconds(30));
    /// As kill -9; its worker goes on until it notices.
    void Kill();

    Answer Ask(const std::string& method, const std::string& target,
               const std::vector<std::string>& headers = {}, const std::string& body = "") const;
    /// At that socket, or at that address.
    static Answer AskAt(const std::string& place, const std::string& method,
                        const std::string& target, const std::vector<std::string>& headers = {},
                        const std::string& body = "");
    /// What the description says about the answer is so; the test fails if not.
    static void Hold(const std::string& method, const std::string& target, const Answer& answer);
    /// The first address of the network where it says that it serves.
    std::string Address() const;
    /// With the key, waiting for so many seconds at most; Repeated().
    Answer HandIn(const std::string& key, const std::string& content, int wait) const;
    /// As a client does it: again, for a minute, while another program writes to the journal.
    static Answer Repeated(const std::function<Answer()>& ask);
    static nlohmann::json JsonOf(const Answer& answer);

    /// What it has written to standard error.
    std::string Said() const;
    std::string File(const std::string& name) const { return folder_.File(name); }
    std::string Socket() const { return File("voltisd.sock"); }
    std::vector<std::string> Command() const;

  private:
    bool HasEnded() const;

    TempDir folder_;
    pid_t process_ = -1;
};
