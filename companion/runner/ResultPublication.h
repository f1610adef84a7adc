// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The result file beside the command file, where the caller looks for it: whole, or not there.
#pragma once

#include <string>

namespace runner {

/// To be made before anything is sent: afterwards the result can be written.
class ResultPublication {
  public:
    /// Beside the command file, under that name. An empty name: there is no result file, and none
    /// of the calls does anything. RunError: no file can be made in that folder.
    ResultPublication(const std::string& commandFile, const std::string& name);
    ~ResultPublication();
    ResultPublication(const ResultPublication&) = delete;
    ResultPublication& operator=(const ResultPublication&) = delete;

    /// The result of an earlier run is gone afterwards, on the disk, too. RunError: it is not.
    void RemoveOld() const;
    /// Writes the result and gives it its name; it is on the disk afterwards. std::runtime_error:
    /// it could not be written, and there is no result file.
    void Publish(const std::string& text);

    /// Its path, empty when there is none.
    const std::string& File() const { return file_; }

  private:
    void Open();
    void SyncFolder() const;
    void Abandon();

    std::string folder_;
    std::string file_;
    std::string temporary_;
    int fd_ = -1;
};

}  // namespace runner
