// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// SQLite, as far as the journal needs it: one connection, prepared statements, transactions.
// Whatever fails is a JournalError with the file's name.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

namespace journal {

/// A connection. Statements wait for other processes, up to usualPatience or what is set; then they
/// fail with JournalBusy. When it ends it leaves
/// the changes beside the file as they are, so that nobody reads a file that has half of them.
class Database {
  public:
    static constexpr std::chrono::milliseconds usualPatience{10'000};

    /// Opens the file, and makes it where the virtual file system has none. vfs null: the usual
    /// one.
    Database(const std::string& path, const char* vfs);

    /// Opens a file that is there, to read only: neither it nor the files beside it are changed or
    /// made, whoever has it open. A file with changes beside it that only a write could bring in is
    /// a JournalError.
    static Database ForReading(const std::string& path);

    void SetPatience(std::chrono::milliseconds patience);

    const std::string& Path() const { return path_; }
    sqlite3* Handle() const { return handle_.get(); }
    /// Throws what the last call on this connection complained of.
    [[noreturn]] void Fail() const;

    struct Finalize {
        void operator()(sqlite3_stmt* handle) const;
    };
    using Prepared = std::unique_ptr<sqlite3_stmt, Finalize>;
    /// The statement, prepared. It is kept for the next call when it is given back.
    Prepared Take(const std::string& sql) const;
    void GiveBack(const std::string& sql, Prepared statement) const;

  private:
    struct Close {
        void operator()(sqlite3* handle) const;
    };

    Database(const std::string& path, const std::string& name, int flags, const char* vfs);

    std::string path_;
    std::unique_ptr<sqlite3, Close> handle_;
    mutable std::map<std::string, Prepared> kept_;  // gone before the connection
};

/// Bytes that are stored as they are, where a std::string is stored as text.
struct Blob {
    const std::string& bytes;
};

/// A prepared statement with its values. Columns count from 0.
class Statement {
  public:
    /// The values take the places of the question marks, in their order.
    template <typename... Values>
    Statement(const Database& database, const std::string& sql, const Values&... values)
        : Statement(Prepare(), database, sql) {
        (Bind(values), ...);
    }

    ~Statement();
    Statement(Statement&&) = default;
    Statement& operator=(Statement&&) = delete;

    /// Goes to the next row; false: there is none.
    bool Step();
    /// For a statement that returns no row of interest.
    void Run();

    std::string Text(int column) const;
    std::int64_t Integer(int column) const;
    double Real(int column) const;
    bool IsNull(int column) const;

  private:
    struct Prepare {};

    Statement(Prepare, const Database& database, const std::string& sql);
    void Bind(std::int64_t value);
    void Bind(int value) { Bind(static_cast<std::int64_t>(value)); }
    void Bind(const std::string& text);
    void Bind(const std::optional<std::string>& text);
    void Bind(const Blob& blob);
    void Check(int result) const;

    const Database& database_;
    std::string sql_;
    Database::Prepared handle_;
    int bound_ = 0;
};

/// A statement of which no row is wanted.
template <typename... Values>
void Run(const Database& database, const std::string& sql, const Values&... values) {
    Statement(database, sql, values...).Run();
}

/// Everything until Commit, or nothing. Other processes that want to write wait meanwhile.
class Transaction {
  public:
    explicit Transaction(const Database& database);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void Commit();

  private:
    const Database& database_;
};

}  // namespace journal
