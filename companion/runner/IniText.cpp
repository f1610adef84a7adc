// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/IniText.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <stdexcept>

namespace runner {

namespace {

// The reader takes a path, so the text becomes a file that has one in memory.
class MemoryFile {
  public:
    explicit MemoryFile(const std::string& text) : fd_(memfd_create("ini", MFD_CLOEXEC)) {
        const ssize_t written = fd_ == -1 ? -1 : write(fd_, text.data(), text.size());
        if (written == static_cast<ssize_t>(text.size())) return;
        close(fd_);
        throw std::runtime_error("no memory for its text");
    }
    ~MemoryFile() { close(fd_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    std::string Path() const { return "/proc/self/fd/" + std::to_string(fd_); }

  private:
    int fd_;
};

}  // namespace

IniText::IniText(const std::string& text, const std::string& section)
    : store_(IniStore_Open(MemoryFile(text).Path().c_str(), IniStoreMode_Read)) {
    if (!store_) throw std::runtime_error("the driver cannot read it: it contains a NUL byte");
    if (!IniStore_LocateHeading(store_.get(), section.c_str()))
        throw std::runtime_error("it has no section [" + section + "]");
}

std::string IniText::Get(const std::string& key) const {
    char value[iniStoreMaxValue + 1];
    if (!IniStore_LocateKey(store_.get(), key.c_str())) return "";
    return {value, IniStore_ReadString(store_.get(), value, sizeof value)};
}

int IniText::Number(const std::string& key, int defaultValue) const {
    int number = defaultValue;
    if (IniStore_LocateKey(store_.get(), key.c_str())) IniStore_ReadNumber(store_.get(), &number);
    return number;
}

}  // namespace runner
