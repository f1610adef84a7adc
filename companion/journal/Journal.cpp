// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/journal/Journal.h"

#include <sqlite3.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <span>
#include <system_error>
#include <thread>

#include "companion/journal/Place.h"

namespace journal {

namespace {

using Clock = std::chrono::system_clock;

constexpr int schemaVersion = 3;
constexpr int applicationId = 0x564F4C54;  // the file's mark, at byte 68

// Small enough to be read again in no time by the next process, which finds what is not yet in the
// main file there.
constexpr int walPages = 100;

// A file of version 1 has these. An older program that has it open goes on after the steps that
// follow: columns are added with defaults, and it names those that it uses.
constexpr const char* firstSchema[] = {
    "CREATE TABLE jobs("
    "number INTEGER PRIMARY KEY AUTOINCREMENT, id TEXT UNIQUE, register TEXT NOT NULL,"
    "file TEXT NOT NULL, content BLOB NOT NULL,"
    "state TEXT NOT NULL CHECK(state IN('received','sending','done','failed','in-doubt')),"
    "verdict TEXT NOT NULL DEFAULT '', outcome TEXT NOT NULL DEFAULT '', exit_code INTEGER,"
    "received TEXT NOT NULL, ended TEXT NOT NULL DEFAULT '', logs TEXT NOT NULL DEFAULT '',"
    "resolved_by TEXT NOT NULL DEFAULT '', resolved_at TEXT NOT NULL DEFAULT '',"
    "note TEXT NOT NULL DEFAULT '') STRICT",
    "CREATE INDEX jobs_received ON jobs(received)",
    // What the attempts before the present one came to.
    "CREATE TABLE attempts("
    "job INTEGER NOT NULL, register TEXT NOT NULL, file TEXT NOT NULL, verdict TEXT NOT NULL,"
    "outcome TEXT NOT NULL, exit_code INTEGER, received TEXT NOT NULL, ended TEXT NOT NULL,"
    "logs TEXT NOT NULL, resolved_by TEXT NOT NULL, resolved_at TEXT NOT NULL,"
    "note TEXT NOT NULL) STRICT",
    "CREATE INDEX attempts_job ON attempts(job)",
    "CREATE TABLE registers(name TEXT PRIMARY KEY, may_hold INTEGER NOT NULL) STRICT",
};

constexpr const char* toSecondVersion[] = {
    "ALTER TABLE jobs ADD COLUMN till TEXT NOT NULL DEFAULT ''",
    "ALTER TABLE jobs ADD COLUMN place INTEGER",
    "ALTER TABLE jobs ADD COLUMN withdrawn_by TEXT NOT NULL DEFAULT ''",
    "CREATE INDEX jobs_register ON jobs(register, number)",
    "CREATE INDEX jobs_open ON jobs(state, register, place)"
    " WHERE state IN('received','sending','in-doubt')",
    "CREATE INDEX jobs_place ON jobs(place) WHERE place IS NOT NULL",
    "CREATE INDEX jobs_ended ON jobs(ended) WHERE state IN('done','failed')",
    "CREATE INDEX jobs_failed ON jobs(number) WHERE state='failed'",
    "CREATE TABLE events("
    "number INTEGER PRIMARY KEY AUTOINCREMENT, job INTEGER NOT NULL, register TEXT NOT NULL,"
    "state TEXT NOT NULL, verdict TEXT NOT NULL,"
    "at TEXT NOT NULL DEFAULT(strftime('%Y-%m-%dT%H:%M:%fZ','now'))) STRICT",
    "CREATE INDEX events_job ON events(job)",
    // By the file itself, so that no program can forget it.
    "CREATE TRIGGER job_received AFTER INSERT ON jobs BEGIN"
    " INSERT INTO events(job, register, state, verdict)"
    " VALUES(NEW.number, NEW.register, NEW.state, NEW.verdict); END",
    "CREATE TRIGGER job_changed AFTER UPDATE OF state ON jobs BEGIN"
    " INSERT INTO events(job, register, state, verdict)"
    " VALUES(NEW.number, NEW.register, NEW.state, NEW.verdict); END",
    "CREATE TABLE counts(register TEXT, result TEXT, jobs INTEGER NOT NULL, last INTEGER NOT NULL,"
    " ended TEXT NOT NULL, PRIMARY KEY(register, result)) STRICT, WITHOUT ROWID",
    "CREATE TRIGGER job_ended AFTER UPDATE OF state ON jobs"
    " WHEN OLD.state IN('received','sending') AND NEW.state IN('done','failed','in-doubt') BEGIN"
    " INSERT INTO counts VALUES(NEW.register,"
    "  CASE NEW.withdrawn_by WHEN '' THEN NEW.verdict ELSE 'withdrawn' END, 1, NEW.number,"
    "  NEW.ended)"
    " ON CONFLICT(register, result) DO UPDATE"
    "  SET jobs=jobs+1, last=excluded.last, ended=excluded.ended; END",
    "CREATE TABLE durations(register TEXT, bound INTEGER, jobs INTEGER NOT NULL,"
    " seconds REAL NOT NULL, PRIMARY KEY(register, bound)) STRICT, WITHOUT ROWID",
};

// Old jobs are removed by register: those of another one, which keeps them longer, are not looked
// at.
constexpr const char* toThirdVersion[] = {
    "CREATE INDEX events_register ON events(register, number)",
    "DROP INDEX jobs_ended",
    "CREATE INDEX jobs_ended ON jobs(register, ended) WHERE state IN('done','failed')",
    "CREATE TABLE served(register TEXT PRIMARY KEY, socket TEXT NOT NULL) STRICT, WITHOUT ROWID",
};

// A negative bound: longer than all.
std::string TriggerOfDurations() {
    const std::string seconds =
        "ifnull(max(0.0, round((julianday(NEW.ended)-julianday(NEW.received))*86400.0, 3)), 0.0)";
    std::string bound = "CASE";
    for (const int atMost : durationBounds)
        bound +=
            " WHEN " + seconds + "<=" + std::to_string(atMost) + " THEN " + std::to_string(atMost);
    return "CREATE TRIGGER job_took AFTER UPDATE OF state ON jobs"
           " WHEN OLD.state='sending' AND NEW.state IN('done','failed','in-doubt') BEGIN"
           " INSERT INTO durations VALUES(NEW.register, " +
           bound + " ELSE -1 END, 1, " + seconds +
           ") ON CONFLICT(register, bound) DO UPDATE"
           "  SET jobs=jobs+1, seconds=seconds+excluded.seconds; END";
}

// What later versions have more, for a file that may not be changed.
constexpr const char* asSecondVersion[] = {
    "CREATE TEMP VIEW jobs AS SELECT *, '' AS till, NULL AS place, '' AS withdrawn_by"
    " FROM main.jobs",
    "CREATE TEMP TABLE events(number INTEGER, job INTEGER, register TEXT, state TEXT,"
    " verdict TEXT, at TEXT)",
    "CREATE TEMP TABLE counts(register TEXT, result TEXT, jobs INTEGER, last INTEGER, ended TEXT)",
    "CREATE TEMP TABLE durations(register TEXT, bound INTEGER, jobs INTEGER, seconds REAL)",
};
constexpr const char* asThirdVersion[] = {
    "CREATE TEMP TABLE served(register TEXT, socket TEXT)",
};

// What makes SQLite use the index of open jobs, which it does only for the words of that index; it
// would look at every job that a register ever had.
constexpr char isOpen[] = "state IN('received','sending','in-doubt')";

struct StateRow {
    State state;
    const char* word;
};
constexpr StateRow states[] = {
    {State::Received, "received"}, {State::Sending, "sending"},  {State::Done, "done"},
    {State::Failed, "failed"},     {State::InDoubt, "in-doubt"},
};

std::vector<std::string> Texts(Statement statement) {
    std::vector<std::string> texts;
    while (statement.Step()) texts.push_back(statement.Text(0));
    return texts;
}

std::int64_t Number(const Database& database, const char* sql) {
    Statement statement(database, sql);
    return statement.Step() ? statement.Integer(0) : 0;
}

[[noreturn]] void Refuse(const std::string& path, const std::string& reason) {
    throw JournalError("cannot use the journal '" + path + "' - " + reason);
}

// 0 for a database with nothing in it.
std::int64_t VersionOf(const Database& database) {
    if (Number(database, "SELECT count(*) FROM sqlite_schema") == 0) return 0;
    if (Number(database, "PRAGMA application_id") != applicationId) {
        Refuse(database.Path(), "it is a database of something else; name another with --journal");
    }
    const std::int64_t version = Number(database, "PRAGMA user_version");
    if (version > schemaVersion) {
        Refuse(database.Path(), "it has version " + std::to_string(version) +
                                    ", and this program knows " + std::to_string(schemaVersion) +
                                    "; use the program that made it");
    }
    return version;
}

bool TryWal(const Database& database) {
    try {
        return Texts(Statement(database, "PRAGMA journal_mode=WAL")).at(0) == "wal";
    } catch (const JournalBusy&) {
        return false;
    }
}

// SQLite does not wait for others with this change.
void UseWal(const Database& database) {
    constexpr std::chrono::milliseconds step(5);
    for (auto waited = step; waited <= Database::usualPatience; waited += step) {
        if (TryWal(database)) return;
        std::this_thread::sleep_for(step);
    }
    Refuse(database.Path(), "another process keeps it locked, or its file system cannot share it");
}

void RunAll(const Database& database, std::span<const char* const> statements) {
    for (const char* statement : statements) Run(database, statement);
}

void MakeFirstTables(const Database& database) {
    RunAll(database, firstSchema);
    Run(database, "PRAGMA application_id=" + std::to_string(applicationId));
}

void MakeTables(const Database& database) {
    Transaction transaction(database);
    const std::int64_t version = VersionOf(database);  // another process may have been quicker
    if (version == 0) MakeFirstTables(database);
    if (version < 2) {
        RunAll(database, toSecondVersion);
        Run(database, TriggerOfDurations());
    }
    if (version < 3) RunAll(database, toThirdVersion);
    Run(database, "PRAGMA user_version=" + std::to_string(schemaVersion));
    transaction.Commit();
}

const std::string jobColumns =
    "number, id, register, file, state, verdict, outcome, exit_code, received, ended, logs, "
    "resolved_by, resolved_at, note, till, place, withdrawn_by";

State StateIn(const Database& database, const std::string& word) {
    const std::optional<State> state = StateOf(word);
    if (!state) Refuse(database.Path(), "a job has the unknown state '" + word + "'");
    return *state;
}

// Of a row with the columns above, in that order.
Job JobIn(const Database& database, const Statement& row) {
    Job job;
    job.number = row.Integer(0);
    if (!row.IsNull(1)) job.id = row.Text(1);
    job.registerName = row.Text(2);
    job.file = row.Text(3);
    job.state = StateIn(database, row.Text(4));
    job.verdict = row.Text(5);
    job.outcome = row.Text(6);
    if (!row.IsNull(7)) job.exitCode = static_cast<int>(row.Integer(7));
    job.received = row.Text(8);
    job.ended = row.Text(9);
    job.logs = row.Text(10);
    job.resolvedBy = row.Text(11);
    job.resolvedAt = row.Text(12);
    job.note = row.Text(13);
    job.till = row.Text(14);
    if (!row.IsNull(15)) job.place = row.Integer(15);
    job.withdrawnBy = row.Text(16);
    return job;
}

std::vector<Job> JobsOf(Statement rows, const Database& database) {
    std::vector<Job> jobs;
    while (rows.Step()) jobs.push_back(JobIn(database, rows));
    return jobs;
}

bool IsOpen(State state) {
    return state != State::Done && state != State::Failed;
}

// Of the values ?1 to ?3: what is asked for alone, and a state by its word, so that an index can
// serve it. A plus before the columns keeps SQLite from the indexes of other columns than received.
std::string ConditionOf(const Filter& filter, const std::string& plus = "") {
    std::string condition = "?1=?1 AND ?2=?2 AND ?3=?3";
    if (!filter.registerName.empty()) condition += " AND " + plus + "register=?1";
    if (!filter.id.empty()) condition += " AND " + plus + "id=?2";
    if (!filter.since.empty()) condition += " AND received>=?3";
    if (!filter.state) return condition;
    condition += " AND " + plus + "state='" + Word(*filter.state) + "'";
    return plus.empty() && IsOpen(*filter.state) ? condition + " AND " + isOpen : condition;
}

// By number, which is not to decide about the index where there is a better one.
std::string NumberFor(const Filter& filter) {
    return filter.state && IsOpen(*filter.state) ? "+number" : "number";
}

// To be sorted, while many are better looked for from the last one on.
bool AreFewSince(const Database& database, const std::string& since) {
    constexpr int few = 2000;
    if (since.empty()) return false;
    Statement row(database, "SELECT count(*) FROM (SELECT 1 FROM jobs WHERE received>=? LIMIT ?)",
                  since, few);
    return row.Step() && row.Integer(0) < few;
}

constexpr int contentColumn = 17;

template <typename Key>
std::optional<Job> JobWhere(const Database& database, const char* column, const Key& key) {
    Statement row(database, "SELECT " + jobColumns + ", content FROM jobs WHERE " + column + "=?",
                  key);
    if (!row.Step()) return std::nullopt;
    Job job = JobIn(database, row);
    job.content = row.Text(contentColumn);
    return job;
}

std::int64_t Insert(const Database& database, const NewJob& job) {
    Run(database,
        "INSERT INTO jobs(id, register, file, content, state, received, till) "
        "VALUES(?,?,?,?,'received',?,?)",
        job.id, job.registerName, job.file, Blob{job.content}, TimeText(Clock::now()), job.till);
    return sqlite3_last_insert_rowid(database.Handle());
}

// The last place of all queues: those of one queue are in the order in which they came.
void PutInQueue(const Database& database, std::int64_t number) {
    Run(database,
        "UPDATE jobs SET place=1+ifnull((SELECT max(place) FROM jobs WHERE place IS NOT NULL),0)"
        " WHERE number=?",
        number);
}

void WriteMayHold(const Database& database, const std::string& registerName, bool mayHold) {
    Run(database,
        "INSERT INTO registers(name, may_hold) VALUES(?, ?)"
        " ON CONFLICT(name) DO UPDATE SET may_hold=excluded.may_hold",
        registerName, mayHold ? 1 : 0);
}

void WriteEnd(const Database& database, std::int64_t number, const Ended& ended) {
    Run(database,
        "UPDATE jobs SET state=?, verdict=?, outcome=?, exit_code=?, ended=? WHERE number=?",
        std::string(Word(StateAfter(ended.verdict))), ended.verdict, ended.outcome, ended.exitCode,
        TimeText(Clock::now()), number);
}

// A new call with its ID may print it. One that waits in the queue does so already.
bool MayBeTakenUp(const Job& job) {
    if (job.state == State::Failed) return job.withdrawnBy.empty();
    return job.state == State::Received && !job.place;
}

bool IsSameAttempt(const Job& job, const Job& seen) {
    return job.received == seen.received && job.place == seen.place &&
           job.registerName == seen.registerName;
}

[[noreturn]] void RefuseState(const Job& job, const char* what) {
    const std::string name = job.id ? "'" + *job.id + "'" : "number " + std::to_string(job.number);
    throw WrongState("job " + name + " cannot be " + what + ": it is " + Word(job.state) +
                     (job.verdict.empty() ? "" : " (" + job.verdict + ")"));
}

// SQLite waits for ever for the bytes of a pipe, and takes /dev/null for a journal without jobs. Of
// a folder it tells itself.
void NeedFile(const std::string& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status) &&
        !std::filesystem::is_directory(status)) {
        Refuse(path, "it is no regular file; name another with --journal");
    }
}

// Of the file that links lead to: SQLite makes its files there.
std::string FolderOf(const std::string& path) {
    std::error_code error;
    const std::filesystem::path real = std::filesystem::weakly_canonical(path, error);
    return error ? "" : real.parent_path().string();
}

bool MayWrite(const std::string& path) {
    return access(path.c_str(), R_OK | W_OK) == 0;
}

std::string MadeIfMayBe(const std::string& path) {
    NeedFile(path);
    return MadeFile(path);
}

}  // namespace

const char* Word(State state) {
    for (const StateRow& row : states) {
        if (row.state == state) return row.word;
    }
    return "";
}

std::optional<State> StateOf(const std::string& word) {
    for (const StateRow& row : states) {
        if (row.word == word) return row.state;
    }
    return std::nullopt;
}

bool PerhapsSent(State state) {
    return state != State::Received && state != State::Failed;
}

State StateAfter(const std::string& verdict) {
    if (verdict == printed || verdict == part) return State::Done;
    return verdict == notPrinted ? State::Failed : State::InDoubt;
}

std::string TimeText(Clock::time_point time) {
    const auto whole = std::chrono::floor<std::chrono::seconds>(time);
    const auto rest = std::chrono::floor<std::chrono::milliseconds>(time - whole);
    const std::time_t seconds = Clock::to_time_t(whole);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 32> text{};
    const size_t size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text.data() + size, text.size() - size, ".%03dZ", static_cast<int>(rest.count()));
    return text.data();
}

Journal::Journal(const std::string& path, const char* vfs)
    : database_(vfs == nullptr ? MadeIfMayBe(path) : path, vfs) {
    Prepare();
}

std::optional<Journal> Journal::ForReading(const std::string& path) {
    NeedFile(path);
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    if (error == std::errc::no_such_file_or_directory || (!error && size == 0)) return std::nullopt;
    Database database = Database::ForReading(path);
    const std::int64_t version = VersionOf(database);
    if (version == 0) return std::nullopt;
    if (version < schemaVersion) Run(database, "PRAGMA temp_store=MEMORY");
    if (version < 2) RunAll(database, asSecondVersion);
    if (version < 3) RunAll(database, asThirdVersion);
    return Journal(std::move(database));
}

// The files beside the journal are made here.
void Journal::Prepare() {
    const GroupMask shared(FolderOf(database_.Path()));
    const std::int64_t version = VersionOf(database_);  // before anything is changed
    UseWal(database_);
    // For every step: what a failed sync has lost no later one brings, so a step must not count on
    // the next one to bring it to disk.
    Run(database_, "PRAGMA synchronous=FULL");
    Run(database_, "PRAGMA wal_autocheckpoint=" + std::to_string(walPages));
    if (version < schemaVersion) MakeTables(database_);
}

Place Journal::DefaultPlace(const std::string& id, const std::string& folder) {
    Place place = PlaceIn(folder);
    std::error_code hidden;  // from this account, which then has never used it
    const bool other = place.path != place.own && std::filesystem::exists(place.own, hidden);
    if (other && !id.empty() && PerhapsSent(place.own, id)) place.path = place.own;
    return place;
}

bool Journal::PerhapsSent(const std::string& path, const std::string& id) try {
    if (IsAbsent(path)) return false;
    NeedFile(path);
    const GroupMask shared(FolderOf(path));
    // Nothing in it is changed; where only reading is allowed, nothing is made beside it either.
    const Database database = MayWrite(path) ? Database(path, nullptr) : Database::ForReading(path);
    if (VersionOf(database) == 0) return false;
    const std::optional<Job> job = JobWhere(database, "id", id);
    return job && journal::PerhapsSent(job->state);
} catch (const std::exception&) {
    return true;
}

std::optional<Job> Journal::Find(const std::string& id) const {
    return JobWhere(database_, "id", id);
}

std::optional<Job> Journal::Find(std::int64_t number) const {
    return JobWhere(database_, "number", number);
}

Job Journal::Get(std::int64_t number) const {
    const std::optional<Job> job = Find(number);
    if (!job) {
        throw JournalError("the journal '" + database_.Path() + "' has no job number " +
                           std::to_string(number));
    }
    return *job;
}

std::vector<Job> Journal::History(std::int64_t number) const {
    return JobsOf(Statement(database_,
                            "SELECT job, NULL, register, file, 'failed', verdict, outcome,"
                            " exit_code, received, ended, logs, resolved_by, resolved_at, note, '',"
                            " NULL, '' FROM attempts WHERE job=? ORDER BY rowid",
                            number),
                  database_);
}

std::vector<Job> Journal::List(const Filter& filter) const {
    return JobsOf(Statement(database_,
                            "SELECT " + jobColumns + " FROM jobs WHERE " + ConditionOf(filter) +
                                " ORDER BY " + NumberFor(filter),
                            filter.registerName, filter.id, filter.since),
                  database_);
}

std::vector<Job> Journal::Latest(const Filter& filter, std::int64_t below, int limit) const {
    const std::string plus = AreFewSince(database_, filter.since) ? "+" : "";
    const std::string number = plus.empty() ? NumberFor(filter) : "+number";
    return JobsOf(
        Statement(database_,
                  "SELECT " + jobColumns + " FROM jobs WHERE " + ConditionOf(filter, plus) +
                      " AND " + number + "<?4 ORDER BY " + number + " DESC LIMIT ?5",
                  filter.registerName, filter.id, filter.since, below, limit),
        database_);
}

std::int64_t Journal::Receive(const NewJob& job) {
    Transaction transaction(database_);
    const std::optional<Job> old = job.id ? Find(*job.id) : std::nullopt;
    if (old && old->content != job.content) {
        throw OtherContent("job '" + *job.id +
                           "' is in the journal with another content, received " + old->received +
                           " from '" + old->file + "'; a new job needs a new ID");
    }
    const bool settled = old && !MayBeTakenUp(*old);
    if (old && !settled) TakeUpAgain(*old, job);
    const std::int64_t number = old ? old->number : Insert(database_, job);
    if (job.queued && !settled) PutInQueue(database_, number);
    transaction.Commit();
    return number;
}

std::optional<std::int64_t> Journal::NextInQueue(const std::string& registerName) const {
    Statement row(database_,
                  std::string("SELECT number FROM jobs WHERE state='received' AND register=?"
                              " AND place IS NOT NULL AND ") +
                      isOpen + " ORDER BY place LIMIT 1",
                  registerName);
    if (!row.Step()) return std::nullopt;
    return row.Integer(0);
}

std::int64_t Journal::QueueLength(const std::string& registerName) const {
    Statement row(database_,
                  std::string("SELECT count(*) FROM jobs WHERE state='received' AND register=?"
                              " AND place IS NOT NULL AND ") +
                      isOpen,
                  registerName);
    return row.Step() ? row.Integer(0) : 0;
}

std::int64_t Journal::BeforeInQueue(const Job& job) const {
    if (!job.InQueue()) return 0;
    Statement row(database_,
                  std::string("SELECT count(*) FROM jobs WHERE state='received' AND register=?"
                              " AND place<? AND ") +
                      isOpen,
                  job.registerName, *job.place);
    return row.Step() ? row.Integer(0) : 0;
}

void Journal::Withdraw(std::int64_t number, const std::string& who, const std::string& outcome,
                       int exitCode) {
    Transaction transaction(database_);
    const Job job = Get(number);
    if (!job.InQueue()) RefuseState(job, "withdrawn");
    Run(database_, "UPDATE jobs SET withdrawn_by=? WHERE number=?", who, number);
    WriteEnd(database_, number, {notPrinted, outcome, exitCode, true});
    transaction.Commit();
}

std::vector<Event> Journal::EventsAfter(std::int64_t number, int limit,
                                        const std::string& registerName) const {
    const std::string condition = registerName.empty() ? "?3=?3" : "events.register=?3";
    Statement row(database_,
                  "SELECT events.number, job, events.register, events.state, events.verdict, at, id"
                  " FROM events LEFT JOIN jobs ON jobs.number=job WHERE events.number>?1 AND " +
                      condition + " ORDER BY events.number LIMIT ?2",
                  number, limit, registerName);
    std::vector<Event> events;
    while (row.Step()) {
        events.push_back({row.Integer(0),
                          row.Integer(1),
                          row.Text(2),
                          StateIn(database_, row.Text(3)),
                          row.Text(4),
                          row.Text(5),
                          {}});
        if (!row.IsNull(6)) events.back().id = row.Text(6);
    }
    return events;
}

// Events that were removed count, too.
std::int64_t Journal::LastEvent() const {
    return Number(database_, "SELECT seq FROM main.sqlite_sequence WHERE name='events'");
}

std::int64_t Journal::LastEventOf(std::int64_t number) const {
    Statement row(database_, "SELECT max(number) FROM events WHERE job=?", number);
    return row.Step() ? row.Integer(0) : 0;
}

std::vector<Count> Journal::Counts() const {
    Statement row(database_,
                  "SELECT register, result, jobs, last, ended FROM counts"
                  " ORDER BY register, result");
    std::vector<Count> counts;
    while (row.Step())
        counts.push_back({row.Text(0), row.Text(1), row.Integer(2), row.Integer(3), row.Text(4)});
    return counts;
}

std::vector<Duration> Journal::Durations() const {
    Statement row(database_,
                  "SELECT register, bound, jobs, seconds FROM durations ORDER BY register, bound");
    std::vector<Duration> durations;
    while (row.Step()) {
        durations.push_back({row.Text(0), {}, row.Integer(2), row.Real(3)});
        if (row.Integer(1) >= 0) durations.back().atMost = static_cast<int>(row.Integer(1));
    }
    return durations;
}

std::map<std::string, std::int64_t> Journal::OpenJobs(State state) const {
    Statement row(database_,
                  std::string("SELECT register, count(*) FROM jobs WHERE state=? AND ") + isOpen +
                      " GROUP BY register",
                  std::string(Word(state)));
    std::map<std::string, std::int64_t> jobs;
    while (row.Step()) jobs[row.Text(0)] = row.Integer(1);
    return jobs;
}

void Journal::SetPatience(std::chrono::milliseconds patience) {
    database_.SetPatience(patience);
}

std::int64_t Journal::DataVersion() const {
    return Number(database_, "PRAGMA data_version");
}

// The row is the latest attempt. One that was never begun has no history.
void Journal::TakeUpAgain(const Job& old, const NewJob& job) {
    if (old.state == State::Failed) {
        Run(database_,
            "INSERT INTO attempts SELECT number, register, file, verdict, outcome, exit_code,"
            " received, ended, logs, resolved_by, resolved_at, note FROM jobs WHERE number=?",
            old.number);
    }
    Run(database_,
        "UPDATE jobs SET register=?, file=?, state='received', verdict='', outcome='',"
        " exit_code=NULL, received=?, ended='', logs='', resolved_by='', resolved_at='', note='',"
        " till=?, place=NULL WHERE number=?",
        job.registerName, job.file, TimeText(Clock::now()), job.till, old.number);
}

void Journal::StartSending(std::int64_t number, const std::string& registerName,
                           const std::string& logs, std::optional<std::int64_t> place) {
    Transaction transaction(database_);
    const Job job = Get(number);
    if (place && job.place != place) throw OutOfTurn("the job has left its place in the queue");
    if (job.state != State::Received) RefuseState(job, "sent");
    Run(database_, "UPDATE jobs SET state='sending', register=?, logs=? WHERE number=?",
        registerName, logs, number);
    WriteMayHold(database_, registerName, true);
    transaction.Commit();
}

void Journal::GiveUp(const Job& seen, const std::string& outcome, int exitCode) {
    Transaction transaction(database_);
    const Job job = Get(seen.number);
    if (job.state != State::Received) RefuseState(job, "given up");
    if (!IsSameAttempt(job, seen)) throw OutOfTurn("the job was taken up again");
    WriteEnd(database_, seen.number, {notPrinted, outcome, exitCode, true});
    transaction.Commit();
}

void Journal::Finish(std::int64_t number, const Ended& ended) {
    Transaction transaction(database_);
    const Job job = Get(number);
    if (job.state != State::Sending) RefuseState(job, "finished");
    WriteEnd(database_, number, ended);
    WriteMayHold(database_, job.registerName, ended.registerMayHold);
    transaction.Commit();
}

std::optional<bool> Journal::MayHold(const std::string& registerName) const {
    Statement row(database_, "SELECT may_hold FROM registers WHERE name=?", registerName);
    if (!row.Step()) return std::nullopt;
    return row.Integer(0) != 0;
}

void Journal::SetMayHold(const std::string& registerName, bool mayHold) {
    Transaction transaction(database_);
    WriteMayHold(database_, registerName, mayHold);
    transaction.Commit();
}

void Journal::Resolve(std::int64_t number, Decision decision, const std::string& user,
                      const std::string& note) {
    Transaction transaction(database_);
    const Job job = Get(number);
    const bool inPart = job.state == State::Done && job.verdict == part;
    if (!inPart && job.state != State::InDoubt) RefuseState(job, "resolved");
    const std::string verdict = decision == Decision::Printed ? printed : notPrinted;
    Run(database_,
        "UPDATE jobs SET state=?, verdict=?, resolved_by=?, resolved_at=?, note=? WHERE number=?",
        std::string(Word(StateAfter(verdict))), verdict, user, TimeText(Clock::now()), note,
        number);
    transaction.Commit();
}

void Journal::Serve(const std::vector<std::string>& registers, const std::string& socket) {
    Transaction transaction(database_);
    Run(database_, "DELETE FROM served");
    for (const std::string& name : registers)
        Run(database_, "INSERT OR REPLACE INTO served VALUES(?, ?)", name, socket);
    transaction.Commit();
}

std::optional<std::string> Journal::ServedAt(const std::string& registerName) const {
    Statement row(database_, "SELECT socket FROM served WHERE register=?", registerName);
    if (!row.Step()) return std::nullopt;
    return row.Text(0);
}

std::string Journal::Damage() const {
    const std::vector<std::string> said = Texts(Statement(database_, "PRAGMA integrity_check(1)"));
    return said.empty() || said.front() == "ok" ? "" : said.front();
}

std::vector<std::string> Journal::Prune(int days, Clock::time_point now,
                                        const std::string& registerName) {
    const std::string limit = TimeText(now - std::chrono::hours(24) * days);
    const std::string old =
        "(SELECT number FROM jobs WHERE state IN('done','failed') AND ended<?1 AND " +
        std::string(registerName.empty() ? "?2=?2" : "register=?2") +
        " ORDER BY ended, number LIMIT " + std::to_string(mostRemoved) + ")";
    Transaction transaction(database_);
    std::vector<std::string> logs =
        Texts(Statement(database_,
                        "SELECT logs FROM jobs WHERE logs<>'' AND number IN" + old +
                            " UNION SELECT logs FROM attempts WHERE logs<>'' AND job IN" + old,
                        limit, registerName));
    Run(database_, "DELETE FROM attempts WHERE job IN" + old, limit, registerName);
    Run(database_, "DELETE FROM events WHERE job IN" + old, limit, registerName);
    Run(database_, "DELETE FROM jobs WHERE number IN" + old, limit, registerName);
    transaction.Commit();
    return logs;
}

}  // namespace journal
