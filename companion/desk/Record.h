// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What an emulated register took part in, as one JSON object a line.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "emulator/Register.h"
#include "emulator/Tap.h"
#include "emulator/Wire.h"

namespace desk {

class Record {
  public:
    /// Lines are added to the file, which is made when it is missing. std::runtime_error: it cannot
    /// be opened, or is a pipe that no program reads; from the other members: it cannot be written,
    /// and has whole lines only unless the message says otherwise.
    explicit Record(std::string path);
    ~Record();
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

    /// The file ends in the middle of a line, which Start is going to end.
    bool AfterHalfALine() const { return afterHalfALine_; }

    void Start(const emulator::RegisterConfig& config, emulator::WireFamily frames);
    void Frame(emulator::FrameKind kind, emulator::View bytes, emulator::Fate fate) const;
    void Command(const emulator::Acted& acted) const;
    void Printed(const std::string& line) const;
    void Fault(const std::string& fault) const;
    void Over(const std::string& fault) const;
    void Complaint(const std::string& complaint) const;
    void Typed(const std::string& line) const;
    /// With the faults that have not happened.
    void Stop(const std::vector<std::string>& waiting) const;

  private:
    void Write(const char* event, const std::string& members) const;
    void WriteLine(const std::string& line) const;
    bool TakeBack(std::size_t written) const;

    std::string path_;
    int fd_;
    bool afterHalfALine_ = false;
};

}  // namespace desk
