// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A file system in memory for SQLite. Its power can be cut at any step, and then it has what a real
// one could have: what was synced, and of what was not, anything.
//
// A step is a call that changes something that lasts: a write, a truncation, a sync, a file created
// or deleted. Steps count from 0. Reads and the shared memory of the WAL are no steps.
//
// One connection at a time: locks are granted without being looked at.
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

/// A file's content: what a reader sees, what is on disk for certain, and the changes in between.
class CutFile {
  public:
    struct Change {
        std::size_t offset;
        std::string bytes;
        bool truncates;  // to the offset
    };

    const std::string& Seen() const { return seen_; }
    void Write(std::size_t offset, const std::string& bytes) { Add({offset, bytes, false}); }
    void Truncate(std::size_t size) { Add({size, "", true}); }
    void Sync();
    /// The power fails, or a sync: of the changes some come to disk. Later syncs do not bring the
    /// others, though a reader sees them as long as there is power.
    void LoseSome(std::mt19937_64& random);
    void PowerOn() { seen_ = durable_; }

  private:
    void Add(const Change& change);

    std::string seen_;
    std::string durable_;
    std::vector<Change> changes_;
};

class CutVfs {
  public:
    explicit CutVfs(std::uint64_t seed);
    ~CutVfs();
    CutVfs(const CutVfs&) = delete;
    CutVfs& operator=(const CutVfs&) = delete;

    /// For SQLite, which knows it under this name.
    const char* Name() const { return name_.c_str(); }

    std::size_t Steps() const { return steps_; }
    /// The power fails in the step of this number: what it does is among what may be lost. From
    /// then on every call fails.
    void CutAt(std::size_t step) { cutAt_ = step; }
    bool IsCut() const { return cut_; }
    /// The power fails now, unless it has, and comes back. Nothing may be open. No step is doomed
    /// any more.
    void CutAndPowerOn();
    /// Steps from this one on fail with an SQLite code: so many of them.
    void FailFrom(std::size_t step, int code, std::size_t count);
    void FailNoMore() { failures_ = 0; }
    /// Every sync says that it was done, and nothing is.
    void IgnoreSyncs() { ignoresSyncs_ = true; }

    using File = std::shared_ptr<CutFile>;
    /// What an open file is to SQLite.
    struct Handle {
        sqlite3_file base;
        CutVfs* vfs;
        File* file;
        bool syncsFolder;  // with its first sync: a journal that was created
    };

    int Open(const char* path, Handle& handle, int flags);
    int Delete(const std::string& path, bool syncFolder);
    bool Exists(const std::string& path) const { return files_.contains(path); }
    int Read(const Handle& handle, char* to, std::size_t size, std::size_t offset) const;
    int Write(const Handle& handle, const std::string& bytes, std::size_t offset);
    int Truncate(const Handle& handle, std::size_t size);
    int Sync(Handle& handle);
    /// A region of the WAL's shared memory; null when there is none and none is to be made.
    volatile void* SharedRegion(std::size_t index, std::size_t size, bool make);
    void ForgetShared() { shared_.clear(); }
    int Fill(char* to, std::size_t size);

  private:
    int Step();
    void SetEntry(const std::string& path, const File& file);
    void SyncFolder();

    std::mt19937_64 random_;
    std::string name_;
    sqlite3_vfs vfs_{};
    std::map<std::string, File> files_;
    std::map<std::string, File> durableFiles_;
    std::map<std::string, std::vector<File>> entryChanges_;  // null: the name was removed
    std::vector<std::unique_ptr<char[]>> shared_;
    std::size_t steps_ = 0;
    std::optional<std::size_t> cutAt_;
    bool cut_ = false;
    std::size_t failFrom_ = 0;
    std::size_t failures_ = 0;
    int failCode_ = SQLITE_OK;
    bool ignoresSyncs_ = false;
};
