// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ini/IniStore.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct IniStore {
    std::string text;
    std::optional<std::string> heading;
    std::string_view value;  // a part of text
};

namespace {

constexpr std::int64_t sizeLimit = std::int64_t{1} << 32;  // a 32-bit position counter
constexpr std::size_t readChunk = 1 << 20;
constexpr char endOfFileMark = 26;  // Ctrl-Z
constexpr std::string_view lineEnds = "\n\r\f";
constexpr std::string_view whiteSpace = " \t\n\v\f\r";

/// A descriptor that closes itself; -1 is none.
class Descriptor {
  public:
    // Not blocking: a FIFO in the file's place must not hold the driver up.
    explicit Descriptor(const char* path) : fd_(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
    ~Descriptor() {
        if (fd_ >= 0) close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return fd_; }

  private:
    int fd_;
};

/// The number of bytes in a regular file, -1 for anything else.
std::int64_t RegularFileSize(int fd) {
    struct stat status = {};
    if (fd < 0 || fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return -1;
    return status.st_size;
}

/// False on a read error and as soon as a NUL byte is seen.
bool ReadText(int fd, std::size_t size, std::string& text) {
    while (text.size() < size) {
        const std::size_t begin = text.size();
        text.resize(begin + std::min(readChunk, size - begin));
        const ssize_t count = read(fd, text.data() + begin, text.size() - begin);
        if (count < 0) return false;
        text.resize(begin + static_cast<std::size_t>(count));
        if (text.find('\0', begin) != std::string::npos) return false;
        if (count == 0) break;  // the file has become shorter
    }
    return true;
}

std::string_view Trimmed(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(whiteSpace);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(whiteSpace) - begin + 1);
}

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool SameName(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return Lower(x) == Lower(y); });
}

/// One line that means something.
struct Entry {
    bool isHeading;
    std::string_view name;
    std::string_view value;
};

std::optional<Entry> ParseLine(std::string_view line) {
    line.remove_prefix(std::min(line.find_first_not_of(whiteSpace), line.size()));
    if (line.starts_with('[')) {
        const std::size_t end = line.find(']');
        if (end == std::string_view::npos) return std::nullopt;
        return Entry{true, Trimmed(line.substr(1, end - 1)), {}};
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos || equals == 0) return std::nullopt;
    return Entry{false, Trimmed(line.substr(0, equals)),
                 Trimmed(line.substr(equals + 1, iniStoreMaxValue))};
}

/// Takes the next line that means something off the front; nothing at the end.
std::optional<Entry> NextEntry(std::string_view& rest) {
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find_first_of(lineEnds), rest.size());
        const std::optional<Entry> entry = ParseLine(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (entry) return entry;
    }
    return std::nullopt;
}

}  // namespace

IniStore* IniStore_Open(const char* path, IniStoreMode mode) {
    if (mode != IniStoreMode_Read) return nullptr;
    const Descriptor file(path);
    const std::int64_t size = RegularFileSize(file.Get());
    if (size < 0) return nullptr;
    if (size >= sizeLimit) {
        std::puts("INI file is too large");
        return nullptr;
    }
    std::string text;
    if (!ReadText(file.Get(), static_cast<std::size_t>(size), text)) return nullptr;
    text.resize(std::min(text.find(endOfFileMark), text.size()));
    return new IniStore{std::move(text), std::nullopt, {}};
}

bool IniStore_LocateHeading(IniStore* store, const char* heading) {
    store->heading.reset();
    store->value = {};
    std::string_view rest = store->text;
    bool inSection = SameName(heading, "");
    while (const std::optional<Entry> entry = NextEntry(rest)) {
        if (entry->isHeading) inSection = SameName(entry->name, heading);
        if (inSection) {
            store->heading = heading;
            return true;
        }
    }
    return false;
}

bool IniStore_LocateKey(IniStore* store, const char* key) {
    store->value = {};
    if (!store->heading) return false;
    std::string_view rest = store->text;
    bool inSection = store->heading->empty();
    bool found = false;
    while (const std::optional<Entry> entry = NextEntry(rest)) {
        if (entry->isHeading) {
            inSection = SameName(entry->name, *store->heading);
        } else if (inSection && SameName(entry->name, key)) {
            store->value = entry->value;
            found = true;
        }
    }
    return found;
}

std::size_t IniStore_ReadString(const IniStore* store, char* buffer, std::size_t size) {
    if (size == 0) return 0;
    const std::size_t count = store->value.copy(buffer, size - 1);
    buffer[count] = '\0';
    return count;
}

bool IniStore_ReadNumber(const IniStore* store, int* number) {
    using Limits = std::numeric_limits<int>;
    std::string_view digits = store->value;
    const bool negative = digits.starts_with('-');
    if (negative || digits.starts_with('+')) digits.remove_prefix(1);
    digits = digits.substr(0, digits.find_first_not_of("0123456789"));
    if (digits.empty()) return false;

    std::int64_t value = 0;
    for (const char digit : digits) {
        value = std::min<std::int64_t>(value * 10 + (digit - '0'), std::int64_t{Limits::max()} + 1);
    }
    if (negative) value = -value;
    *number = static_cast<int>(std::min<std::int64_t>(value, Limits::max()));
    return true;
}

std::vector<IniStoreLine> IniStore_Lines(const IniStore* store) {
    std::vector<IniStoreLine> lines;
    std::string_view section;
    std::string_view rest = store->text;
    std::size_t counted = 0;
    std::size_t number = 1;
    while (const std::optional<Entry> entry = NextEntry(rest)) {
        if (entry->isHeading) section = entry->name;
        if (entry->isHeading || entry->name.empty()) continue;
        const auto at = static_cast<std::size_t>(entry->name.data() - store->text.data());
        const std::string_view between =
            std::string_view(store->text).substr(counted, at - counted);
        number += static_cast<std::size_t>(std::ranges::count(between, '\n'));
        counted = at;
        lines.push_back({section, entry->name, entry->value, number});
    }
    return lines;
}

void IniStore_Close(IniStore* store) {
    delete store;
}
