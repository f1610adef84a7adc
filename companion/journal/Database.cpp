// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/journal/Database.h"

#include <sqlite3.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

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

[[noreturn]] void FailFor(const std::string& path, const std::string& reason) {
    throw JournalError("cannot use the journal '" + path + "' - " + reason);
}

// --- to read only -------------------------------------------------------------------------------

constexpr char noIndex[] =
    "the changes in the file beside it (-wal) lack their index (-shm); `voltisctl jobs` brings "
    "them in";

// What has a meaning in the name of a file with options is written as its number.
std::string Escaped(const std::string& path) {
    std::string text;
    for (const char c : path) {
        std::array<char, 4> number{};
        std::snprintf(number.data(), number.size(), "%%%02X", static_cast<unsigned char>(c));
        text += std::string_view("%?#").find(c) == std::string_view::npos ? std::string(1, c)
                                                                          : number.data();
    }
    return text;
}

bool HasBytes(const std::string& path) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    return !error && size != 0;
}

// The changes that are not in the file yet are beside it, and an index of them. With the index the
// usual locks keep them together, also for a reader that may not write it. Without both there is
// nothing to read but the file, and nothing that is locked: a program that writes meanwhile shows
// as damage, or as a file that cannot be used.
std::string OptionsFor(const std::string& path) {
    std::error_code error;
    const bool changes = HasBytes(path + "-wal");
    const bool index = std::filesystem::exists(path + "-shm", error);
    if (changes && index) return "?mode=ro&readonly_shm=1";
    if (!changes) return "?mode=ro&immutable=1";
    FailFor(path, noIndex);
}

}  // namespace

void Database::Close::operator()(sqlite3* handle) const {
    sqlite3_close(handle);
}

Database::Database(const std::string& path, const char* vfs)
    : Database(path, path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, vfs) {}

Database Database::ForReading(const std::string& path) {
    std::error_code error;  // then SQLite tells what is wrong with the path
    const std::filesystem::path real = std::filesystem::canonical(path, error);
    const std::string file = error ? std::filesystem::absolute(path) : real;
    return {path, "file://" + Escaped(file) + OptionsFor(file),
            SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, nullptr};
}

Database::Database(const std::string& path, const std::string& name, int flags, const char* vfs)
    : path_(path) {
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(name.c_str(), &handle, flags | SQLITE_OPEN_NOMUTEX, vfs);
    handle_.reset(handle);  // there is one to close after a failure, too
    if (result != SQLITE_OK) Fail();
    sqlite3_extended_result_codes(handle, 1);
    SetPatience(usualPatience);
    // The end of a run is not the time to move pages about, and to look is no reason.
    sqlite3_db_config(handle, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
}

void Database::SetPatience(std::chrono::milliseconds patience) {
    sqlite3_busy_timeout(Handle(), static_cast<int>(patience.count()));
}

void Database::Fail() const {
    const int code = sqlite3_errcode(Handle());
    const int systemError = sqlite3_system_errno(Handle());
    std::string reason = sqlite3_errmsg(Handle());
    if (systemError != 0) reason += std::string(" (") + std::strerror(systemError) + ")";
    reason += RemedyFor(code);
    if ((code & 0xFF) != SQLITE_BUSY) FailFor(path_, reason);
    throw JournalBusy("cannot use the journal '" + path_ + "' - " + reason);
}

void Database::Finalize::operator()(sqlite3_stmt* handle) const {
    sqlite3_finalize(handle);
}

Database::Prepared Database::Take(const std::string& sql) const {
    if (const auto kept = kept_.find(sql); kept != kept_.end() && kept->second)
        return std::move(kept->second);
    sqlite3_stmt* handle = nullptr;
    if (sqlite3_prepare_v2(Handle(), sql.c_str(), -1, &handle, nullptr) != SQLITE_OK) Fail();
    return Prepared(handle);
}

// What went wrong with it was told by the step.
void Database::GiveBack(const std::string& sql, Prepared statement) const {
    sqlite3_reset(statement.get());
    sqlite3_clear_bindings(statement.get());
    kept_[sql] = std::move(statement);
}

Statement::Statement(Prepare, const Database& database, const std::string& sql)
    : database_(database), sql_(sql), handle_(database.Take(sql)) {}

Statement::~Statement() {
    if (handle_) database_.GiveBack(sql_, std::move(handle_));
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

double Statement::Real(int column) const {
    return sqlite3_column_double(handle_.get(), column);
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
