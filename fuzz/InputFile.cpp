// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "fuzz/InputFile.h"

#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/Property.h"

InputFile::InputFile()
    : fd(memfd_create("input", MFD_CLOEXEC)), path("/proc/self/fd/" + std::to_string(fd)) {
    Require(fd >= 0, "there is memory for a file");
}

void InputFile::Hold(const std::string& bytes) const {
    const ssize_t written = pwrite(fd, bytes.data(), bytes.size(), 0);
    Require(written == static_cast<ssize_t>(bytes.size()), "the input can be written");
    Require(ftruncate(fd, written) == 0, "the input can be cut");
}
