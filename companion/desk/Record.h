// What an emulated register took part in, as one JSON object a line.
#pragma once

#include <string>
#include <vector>

#include "emulator/Register.h"
#include "emulator/Tap.h"
#include "emulator/Wire.h"

namespace desk {

class Record {
  public:
    /// Lines are added to the file, which is made when it is missing. std::runtime_error: it cannot
    /// be opened; from the other members: it cannot be written.
    explicit Record(std::string path);
    ~Record();
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;

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

    std::string path_;
    int fd_;
};

}  // namespace desk
