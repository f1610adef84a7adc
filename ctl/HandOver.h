// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A job for the service that serves its register: handed in at its Unix socket, and followed in the
// journal, which is the service's, too. What the journal says counts, not what the service answers.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "companion/client/Connection.h"
#include "companion/job/Job.h"
#include "companion/journal/Journal.h"
#include "companion/plan/Plan.h"
#include "companion/runner/Profile.h"

/// Where a job is handed over, and what does the job when nobody is there.
struct Counter {
    journal::Journal& journal;
    job::Jobs& jobs;
    const runner::Profile& profile;
    std::string socket;
};

class HandOver {
  public:
    /// What is named must outlive it. The request's wait is for other jobs that are before this
    /// one.
    HandOver(Counter counter, job::Request request, job::Watcher watcher);

    /// Hands the job over and waits for what becomes of it. When the service ends before the job is
    /// printed, this call prints it. A job that was in the queue before stays there when this call
    /// ends. Nothing: nobody is at the socket, and the job is as it was.
    std::optional<job::Outcome> Do();

  private:
    using Clock = std::chrono::steady_clock;
    /// What came of one call of the service.
    enum class Heard { Answer, Nobody, NotAllowed, Busy, Lost, Silence };
    struct Reply {
        Heard heard = Heard::Lost;
        int status = 0;
        std::string why = {};
    };

    std::optional<job::Outcome> HandIn();
    std::optional<job::Outcome> Next(const Reply& reply);
    Reply Call();
    Reply Ask(client::Connection& connection);
    std::optional<client::Answer> Await(client::Connection& connection);
    bool IsForRequest() const;
    void PutIntoQueue();
    bool IsTaken(bool isAnswered);
    Heard Look() const;

    job::Outcome Follow();
    void LeaveQueueInTime(const journal::Job& job);
    void GiveUp(const journal::Job& job, const std::string& reason);
    void LookAfter(const journal::Job& job);
    void TakeOver(const journal::Job& job);
    void FindOut(bool isServiceGone);
    void ShowProgress(const journal::Job& job);
    void Sleep(std::chrono::milliseconds longest);
    void HearInterrupt();
    bool IsOver(std::chrono::milliseconds longest) const;

    job::Outcome Told(job::Outcome outcome) const;
    job::Outcome NotNow(const std::string& reason) const;
    job::Outcome InDoubt(const std::string& reason) const;

    Counter counter_;
    std::optional<std::string> callersId_;
    job::Request request_;
    job::Watcher watcher_;
    const Clock::time_point start_ = Clock::now();
    std::int64_t lastEvent_ = 0;  // of the job, before this call
    bool isOthers_ = false;       // it was being printed before this call
    bool isJoined_ = false;       // it was in the queue before this call
    bool hasLeft_ = false;        // this call, and not the job
    bool isLost_ = false;         // a request was sent, and never answered
    std::optional<Clock::time_point> interrupted_;
    std::int64_t number_ = 0;  // of the job, when it was taken
    Clock::time_point seen_ = start_;
    Clock::time_point nextLook_ = start_;
    Clock::time_point nextShow_ = start_;
    std::vector<plan::Command> plan_;
};
