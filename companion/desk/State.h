// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The memory of an emulated register as a file, so that it outlives the program.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "companion/desk/Files.h"
#include "companion/desk/Mistake.h"
#include "emulator/Register.h"

namespace desk {

/// The memory of a register of that model as JSON.
std::string StateText(const emulator::Model& model, const emulator::RegisterMemory& memory);

/// Back again. Mistakes: it is no such text, of another version, or of another model.
emulator::RegisterMemory ReadState(const emulator::Model& model, std::string_view text);

/// The file that a register's memory is kept in. It is written whole or not at all: at every
/// moment it has what the register knew after one of its commands. One register at a time has it.
class StateFile {
  public:
    /// std::runtime_error: another register uses the file.
    explicit StateFile(std::string path) : path_(std::move(path)), lock_(path_) {}

    /// The register recalls what the file says; a file that is not there says nothing. Mistakes:
    /// the file cannot be used, and neither it nor the register was changed. std::runtime_error: it
    /// cannot be read.
    void Load(emulator::Register& device);
    /// Writes the file when it says anything else than what the register knows now.
    /// std::runtime_error: it could not be written, and is what it was.
    void Save(const emulator::Register& device);

  private:
    std::string path_;
    FileLock lock_;
    std::optional<emulator::RegisterMemory> saved_;
};

}  // namespace desk
