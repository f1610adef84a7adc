// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Folders, and folders that are removed with everything in them at the end.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>

namespace runner {

/// A folder that is there; it is neither made nor removed here.
class Folder {
  public:
    explicit Folder(std::string path) : path_(std::move(path)) {}

    const std::string& Path() const { return path_; }
    /// The path of a file of this name in the folder; nothing is created.
    std::string File(const std::string& name) const { return path_ + "/" + name; }
    /// Writes the bytes as they are and returns the path.
    std::string Write(const std::string& name, const std::string& bytes) const {
        std::ofstream(File(name), std::ios::binary) << bytes;
        return File(name);
    }

  protected:
    std::string path_;
};

/// A new folder under TMPDIR. std::runtime_error: it cannot be made.
class TempDir : public Folder {
  public:
    TempDir() : Folder((std::filesystem::temp_directory_path() / "voltis-XXXXXX").string()) {
        if (mkdtemp(path_.data()) == nullptr)
            throw std::runtime_error("cannot make folder '" + path_ + "'");
        Enlist();
    }
    ~TempDir() {
        Unlist();
        Remove();
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

  private:
    void Remove() const {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    // exit() ends no automatic object: what is on the list then is removed all the same. A forked
    // child leaves alone what belongs to its parent.
    void Enlist() {
        const std::lock_guard<std::mutex> lock(guard_);
        [[maybe_unused]] static const int registered = std::atexit(RemoveAllLeft);
        next_ = std::exchange(first_, this);
    }
    void Unlist() {
        const std::lock_guard<std::mutex> lock(guard_);
        TempDir** link = &first_;
        while (*link != nullptr && *link != this) link = &(*link)->next_;
        if (*link == this) *link = next_;
    }
    static void RemoveAllLeft() {
        for (const TempDir* dir = first_; dir != nullptr; dir = dir->next_) {
            if (dir->owner_ == getpid()) dir->Remove();
        }
    }

    inline static std::mutex guard_;
    inline static TempDir* first_ = nullptr;

    TempDir* next_ = nullptr;
    const pid_t owner_ = getpid();
};

}  // namespace runner
