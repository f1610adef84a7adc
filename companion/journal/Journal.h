// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What became of every job: on disk before anything is sent, and the verdict before anyone is told.
//
// A job's states:
//
//     Receive         StartSending        Finish
//     --------> received --------> sending -----> done      printed, or a certain part of it
//                  ^  |                    -----> in-doubt  unknown: a person decides (Resolve)
//                  |  +-- GiveUp --------------> failed    not printed: may be tried again
//                  +------- Receive of the same ID and content ------+
//
// A job that is received may wait in the queue of its register for the program that serves it. From
// there it can be withdrawn: then it is failed, and stays so. Every change of a state is an event;
// events are numbered in the order in which they came to be, whichever program made them.
//
// What is promised when the power fails, the process is killed or the disk is full:
//
// - When a call returns, what it has changed is on disk, and every process sees it.
// - When one of them throws, the state afterwards is the one before, or the one that was to be
//   written: a disk that has failed may have kept it all the same. So after StartSending has thrown
//   nothing may be sent, and a job found in `sending` was perhaps sent; after Finish has thrown the
//   verdict may be written by another call, when the state is still `sending`.
//
// Processes may use one file at the same time: each call is one transaction, and waits for the
// others, but not for ever: after Database::usualPatience, or what SetPatience says, it throws
// JournalBusy, and nothing was changed. A Journal belongs to one thread at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "companion/journal/Database.h"
#include "companion/journal/JournalError.h"
#include "companion/journal/Place.h"

namespace journal {

enum class State { Received, Sending, Done, Failed, InDoubt };

/// "received", "sending", "done", "failed", "in-doubt".
const char* Word(State state);
/// Nothing for another word.
std::optional<State> StateOf(const std::string& word);

/// The words of a verdict.
inline constexpr char printed[] = "printed";
inline constexpr char notPrinted[] = "not-printed";
inline constexpr char part[] = "part";
inline constexpr char unknown[] = "unknown";
/// In the place of one, where jobs are counted.
inline constexpr char withdrawn[] = "withdrawn";

/// False for received and failed: nothing was printed.
bool PerhapsSent(State state);
/// done for printed and part, failed for not-printed, in-doubt for anything else.
State StateAfter(const std::string& verdict);

/// UTC, as "2024-05-06T07:08:09.123Z": texts of times sort as the times do.
std::string TimeText(std::chrono::system_clock::time_point time);

struct NewJob {
    std::optional<std::string> id;
    std::string registerName;
    std::string file;       // absolute path
    std::string content;    // the bytes of the command file
    std::string till = {};  // who gave it to the service; else empty
    bool queued = false;    // for the program that serves the register
};

struct Job {
    std::int64_t number = 0;        // of the row; never used again
    std::optional<std::string> id;  // the caller's
    std::string registerName;
    std::string file;
    std::string content;
    State state = State::Received;
    std::string verdict;          // empty until it is known
    std::string outcome;          // the JSON text that the run printed; empty until then
    std::optional<int> exitCode;  // that the run ended with
    std::string received;         // of the latest attempt, as TimeText
    std::string ended;            // empty until then
    std::string logs;             // the folder with the run's own logs; may be empty
    std::string resolvedBy;       // the person, when one has decided; then the verdict is theirs
    std::string resolvedAt;
    std::string note;
    std::string till;                   // who gave it to the service; else empty
    std::optional<std::int64_t> place;  // among all that were ever queued; none: it was not
    std::string withdrawnBy;            // who took it out of the queue; else empty

    bool InQueue() const { return state == State::Received && place.has_value(); }
};

/// A job has come into a state, perhaps into the one that it had.
struct Event {
    std::int64_t number = 0;  // grows, and is never used again
    std::int64_t job = 0;     // its number
    std::string registerName;
    State state = State::Received;
    std::string verdict;
    std::string at;                 // as TimeText
    std::optional<std::string> id;  // of the job
};

/// How many attempts on a register have come to one end. A person's decision is no attempt.
struct Count {
    std::string registerName;
    std::string result;  // the verdict, or withdrawn
    std::int64_t jobs = 0;
    std::int64_t last = 0;  // the number of the job of the last one
    std::string lastEnded;  // as TimeText
};

/// How many runs on a register took so long, from the latest call for the job to its verdict.
struct Duration {
    std::string registerName;
    std::optional<int> atMost;  // seconds, and more than those of the bound before; none: longer
    std::int64_t jobs = 0;
    double seconds = 0;  // of all these
};

/// The bounds of Duration, in seconds.
inline constexpr int durationBounds[] = {1, 2, 3, 5, 10, 20, 30, 60, 120, 300};

/// How a run ended. Its state follows from the verdict.
struct Ended {
    std::string verdict;
    std::string outcome;
    int exitCode = 0;
    bool registerMayHold = true;  // a command number, for the next run on that register
};

/// What is empty selects nothing.
struct Filter {
    std::string registerName;
    std::string id;
    std::string since;  // received then or later: the beginning of a TimeText, such as a date
    std::optional<State> state;
};

enum class Decision { Printed, NotPrinted };

class Journal {
  public:
    /// Opens the file; makes it, and its folders, when it is missing (Place.h). vfs: the name of
    /// the SQLite file system, for tests; then nothing is made outside it. JournalError also for a
    /// file that is no journal, or one of a newer version: such a file is not changed.
    explicit Journal(const std::string& path, const char* vfs = nullptr);

    /// To look at: changes neither the file nor those beside it, also while others work with it; a
    /// call that would write throws. Nothing when there is no journal yet. JournalError: it cannot
    /// be read, or is no journal. What others write at that moment may show as an error or as
    /// Damage(): count only on what repeats while the files stay as they are.
    static std::optional<Journal> ForReading(const std::string& path);

    /// The machine's journal in that folder, or the user's own without rights there (PlaceIn). The
    /// two know nothing of each other's jobs; but a job that was perhaps sent while the user's own
    /// was in use stays there.
    static Place DefaultPlace(const std::string& id = "", const std::string& folder = siteFolder);

    /// For when the journal cannot be used: whether a job with that ID was perhaps sent. It is true
    /// when nobody can tell, and false when there is no journal at all (IsAbsent).
    static bool PerhapsSent(const std::string& path, const std::string& id);

    /// How long each call waits for other processes from now on.
    void SetPatience(std::chrono::milliseconds patience);

    std::optional<Job> Find(const std::string& id) const;
    std::optional<Job> Find(std::int64_t number) const;
    /// JournalError: no such job.
    Job Get(std::int64_t number) const;
    /// In the order of their numbers, without their contents.
    std::vector<Job> List(const Filter& filter = {}) const;

    /// Those with the greatest numbers below that one, so many at most, the greatest first, without
    /// their contents.
    std::vector<Job> Latest(const Filter& filter, std::int64_t below, int limit) const;

    /// What the attempts before the present one came to, the first one first.
    std::vector<Job> History(std::int64_t number) const;

    /// The job's number. A new ID, and a job without one, is a new row in state received. An ID
    /// that is there with the same content keeps its row: in state failed, or left in received, it
    /// is taken up again, with the new register and file, and what came of an attempt before goes
    /// to the history. In any other state nothing changes: ask for the state. OtherContent:
    /// likewise. A job that was withdrawn stays so. One that is queued is the last of its
    /// register's queue, or keeps the register and the place that it has there.
    std::int64_t Receive(const NewJob& job);

    /// The first one of the register's queue.
    std::optional<std::int64_t> NextInQueue(const std::string& registerName) const;
    /// How many are in the register's queue.
    std::int64_t QueueLength(const std::string& registerName) const;
    /// How many are before that one in the queue of its register, 0 for one that is in none.
    std::int64_t BeforeInQueue(const Job& job) const;
    /// Takes a job out of the queue, for good: not-printed. WrongState: it is in none.
    void Withdraw(std::int64_t number, const std::string& who, const std::string& outcome,
                  int exitCode);

    /// The events after that number, so many at most, in their order; those of one register, or of
    /// all without a name.
    std::vector<Event> EventsAfter(std::int64_t number, int limit,
                                   const std::string& registerName = "") const;
    /// The number of the last one that there was; 0: there was none.
    std::int64_t LastEvent() const;
    /// Another number when another program has changed the journal since this was last asked.
    std::int64_t DataVersion() const;
    /// The same of one job: as long as it is the same, so is all of the job but what is before it
    /// in its queue.
    std::int64_t LastEventOf(std::int64_t number) const;

    /// Counted while it happens, so that no call has to look at all jobs; jobs that are removed
    /// stay counted.
    std::vector<Count> Counts() const;
    std::vector<Duration> Durations() const;
    /// The registers with jobs in that state, which is neither Done nor Failed, and their numbers.
    std::map<std::string, std::int64_t> OpenJobs(State state) const;

    /// From received to sending on that register, which may hold a command number from now on. Of
    /// several processes that have received one ID it is the first that gets it: WrongState for the
    /// others. After any exception nothing may be sent.
    /// With the place that it had in a queue: OutOfTurn when it has another one by now, or none.
    void StartSending(std::int64_t number, const std::string& registerName, const std::string& logs,
                      std::optional<std::int64_t> place = {});

    /// The end of a job that was received and could not be sent: not-printed. WrongState in any
    /// other state, so that nobody ends what another process is sending. OutOfTurn when the job was
    /// taken up again since it was seen.
    void GiveUp(const Job& seen, const std::string& outcome, int exitCode);

    /// The end of a job in state sending, by the process that sent it, or by one that knows that
    /// there is none any more. Else WrongState.
    void Finish(std::int64_t number, const Ended& ended);

    /// Whether the register may hold the command number of a run; nothing when it was never seen.
    std::optional<bool> MayHold(const std::string& registerName) const;
    void SetMayHold(const std::string& registerName, bool mayHold);

    /// A person decides what became of a job in doubt, or of one that was printed in part and has
    /// been completed or undone by hand. It becomes done or failed. The outcome keeps what the run
    /// said. WrongState for any other job.
    void Resolve(std::int64_t number, Decision decision, const std::string& user,
                 const std::string& note);

    /// From now on the jobs of these registers are to be handed to the program that listens at the
    /// Unix socket with that absolute path. It replaces all that was said before: any other
    /// register is served by nobody.
    void Serve(const std::vector<std::string>& registers, const std::string& socket);
    /// The path of that socket; nothing: the register is served by nobody. A program that was
    /// killed has not taken back what it said: whether it is there shows when it is called.
    std::optional<std::string> ServedAt(const std::string& registerName) const;

    /// What SQLite finds wrong with the file, the first of it; empty: nothing. Reads all of it.
    std::string Damage() const;

    /// So many jobs a call of Prune removes at most: others have to wait meanwhile.
    static constexpr int mostRemoved = 100;
    /// Removes jobs, done or failed, that ended more than so many days ago, with their history and
    /// events, the oldest first; those of one register, or of all without a name. What is more than
    /// mostRemoved is left to the next call.
    /// Returns their folders of logs, which are the caller's to remove.
    std::vector<std::string> Prune(int days, std::chrono::system_clock::time_point now,
                                   const std::string& registerName = "");

  private:
    explicit Journal(Database database) : database_(std::move(database)) {}

    void Prepare();
    void TakeUpAgain(const Job& old, const NewJob& job);

    Database database_;
};

}  // namespace journal
