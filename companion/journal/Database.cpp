#include "companion/journal/Database.h"

#include <sqlite3.h>

#include <cstring>

#include "companion/journal/JournalError.h"

namespace journal {

namespace {

struct Remedy {
    int code;
    const char* text;
};
constexpr char noAccess[] =
    "; give this user the right to write the file and its folder, or name another with --journal";
constexpr char notOurs[] = "; move it away if it is no journal, or name another with --journal";
constexpr Remedy remedies[] = {
    {SQLITE_FULL, "; free some space on that disk"},
    {SQLITE_CANTOPEN, noAccess},
    {SQLITE_READONLY, noAccess},
    {SQLITE_PERM, noAccess},
    {SQLITE_AUTH, noAccess},
    {SQLITE_NOTADB, notOurs},
    {SQLITE_CORRUPT, "; move it away and keep it: it may hold jobs that are in doubt"},
    {SQLITE_BUSY, "; another process has kept it locked, try again when that has ended"},
    {SQLITE_IOERR, "; the disk or its file system has failed, look at the system's log"},
};

const char* RemedyFor(int code) {
    for (const Remedy& remedy : remedies) {
        if (remedy.code == (code & 0xFF)) return remedy.text;
    }
    return "";
}

}  // namespace

void Database::Close::operator()(sqlite3* handle) const {
    sqlite3_close(handle);
}

Database::Database(const std::string& path, const char* vfs) : path_(path) {
    sqlite3* handle = nullptr;
    constexpr int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    const int result = sqlite3_open_v2(path.c_str(), &handle, flags, vfs);
    handle_.reset(handle);  // there is one to close after a failure, too
    if (result != SQLITE_OK) Fail();
    sqlite3_extended_result_codes(handle, 1);
    sqlite3_busy_timeout(handle, busyTimeoutMs);
}

void Database::Fail() const {
    const int systemError = sqlite3_system_errno(Handle());
    std::string reason = sqlite3_errmsg(Handle());
    if (systemError != 0) reason += std::string(" (") + std::strerror(systemError) + ")";
    throw JournalError("cannot use the journal '" + path_ + "' - " + reason +
                       RemedyFor(sqlite3_errcode(Handle())));
}

void Statement::Finalize::operator()(sqlite3_stmt* handle) const {
    sqlite3_finalize(handle);
}

Statement::Statement(Prepare, const Database& database, const std::string& sql)
    : database_(database) {
    sqlite3_stmt* handle = nullptr;
    Check(sqlite3_prepare_v2(database.Handle(), sql.c_str(), -1, &handle, nullptr));
    handle_.reset(handle);
}

bool Statement::Step() {
    const int result = sqlite3_step(handle_.get());
    if (result != SQLITE_ROW && result != SQLITE_DONE) database_.Fail();
    return result == SQLITE_ROW;
}

void Statement::Run() {
    while (Step()) {
    }
}

std::string Statement::Text(int column) const {
    const void* bytes = sqlite3_column_blob(handle_.get(), column);
    const int size = sqlite3_column_bytes(handle_.get(), column);
    return bytes == nullptr
               ? std::string()
               : std::string(static_cast<const char*>(bytes), static_cast<size_t>(size));
}

std::int64_t Statement::Integer(int column) const {
    return sqlite3_column_int64(handle_.get(), column);
}

bool Statement::IsNull(int column) const {
    return sqlite3_column_type(handle_.get(), column) == SQLITE_NULL;
}

void Statement::Bind(std::int64_t value) {
    Check(sqlite3_bind_int64(handle_.get(), ++bound_, value));
}

void Statement::Bind(const std::string& text) {
    Check(sqlite3_bind_text64(handle_.get(), ++bound_, text.data(), text.size(),
                              SQLITE_TRANSIENT,  // NOLINT(performance-no-int-to-ptr)
                              SQLITE_UTF8));
}

void Statement::Bind(const std::optional<std::string>& text) {
    if (text) return Bind(*text);
    Check(sqlite3_bind_null(handle_.get(), ++bound_));
}

void Statement::Bind(const Blob& blob) {
    Check(sqlite3_bind_blob64(handle_.get(), ++bound_, blob.bytes.data(), blob.bytes.size(),
                              SQLITE_TRANSIENT));  // NOLINT(performance-no-int-to-ptr)
}

void Statement::Check(int result) const {
    if (result != SQLITE_OK) database_.Fail();
}

Transaction::Transaction(const Database& database) : database_(database) {
    Run(database_, "BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
    if (sqlite3_get_autocommit(database_.Handle()) != 0)
        return;  // committed, or rolled back by SQLite
    try {
        Run(database_, "ROLLBACK");
    } catch (const JournalError&) {
        // What began this way out says more.
    }
}

void Transaction::Commit() {
    Run(database_, "COMMIT");
}

}  // namespace journal
