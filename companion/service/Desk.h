// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The counter where tills hand in their jobs: what becomes of a call follows from the journal
// alone. No clock, no thread, and nothing that has to survive a restart.
#pragma once

#include <cstdint>
#include <string>

#include "companion/journal/Journal.h"

namespace service {

struct Submission {
    std::string registerName;
    std::string id;       // of the job, by the caller's choice
    std::string content;  // the bytes of the command file
    std::string till;     // who hands it in
    std::string file;     // of the command file, for messages: a path, as the driver takes one
};

enum class Admission {
    Queued,         ///< for the first time, or again after nothing was printed
    Waiting,        ///< it is in the queue already
    Sending,        ///< it is being printed
    Settled,        ///< it has a result
    OtherContent,   ///< the ID belongs to a job with another content
    OtherRegister,  ///< or with another register
    QueueFull,
};

struct Ticket {
    Admission admission = Admission::QueueFull;
    journal::Job job;  // as it is now; with QueueFull there may be none
};

class Desk {
  public:
    /// The journal must outlive it. So many jobs at most wait for one register.
    Desk(journal::Journal& journal, std::int64_t longestQueue)
        : journal_(journal), longestQueue_(longestQueue) {}

    /// Takes the job into the queue of its register, unless it is known. JournalError: nobody can
    /// tell whether it was taken; the same call again finds out.
    Ticket Submit(const Submission& submission);

    /// Takes a job out of its queue. WrongState: it is in none; JournalError: there is no such job.
    journal::Job Withdraw(std::int64_t number, const std::string& till);
    /// Takes a job out of its queue because nobody waits for it any more, for that reason: it ends
    /// as any other that could not be printed, and may be handed in again. The same exceptions.
    journal::Job GiveUp(std::int64_t number, const std::string& reason);

  private:
    Ticket Enqueue(const Submission& submission);

    journal::Journal& journal_;
    std::int64_t longestQueue_;
};

}  // namespace service
