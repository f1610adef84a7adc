// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/LogBlock.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace runner {

namespace {

constexpr char startText[] = " started. Command line : ";

// Where the block begins whose first line holds the place.
std::size_t BlockBegin(const std::string& log, std::size_t place) {
    const std::size_t end = log.rfind('\n', place);
    const std::size_t line = end == std::string::npos ? 0 : end + 1;
    const bool emptyBefore = line == 1 || (line > 1 && log[line - 2] == '\n');
    return emptyBefore ? line - 1 : line;
}

[[noreturn]] void FailToRead(const std::string& file) {
    const std::string reason = std::strerror(errno);
    throw std::runtime_error("cannot read '" + file + "' - " + reason);
}

// From there on; all of a log that has become shorter, as it was replaced by a new one. A log that
// is closed to this account must not count as an empty one.
std::string Tail(const std::string& file, std::size_t from) {
    std::ifstream in(file, std::ios::binary | std::ios::ate);
    if (!in && errno == ENOENT) return "";
    if (!in) FailToRead(file);
    const std::streamoff size = in.tellg();
    const auto begin = static_cast<std::streamoff>(from);
    in.seekg(begin <= size ? begin : 0);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

}  // namespace

std::string LogBlock(const std::string& log, const std::string& commandFile) {
    const std::string ownLine = " " + commandFile + "\n";
    for (std::size_t at = 0; (at = log.find(startText, at)) != std::string::npos; ++at) {
        const std::size_t end = log.find('\n', at);
        if (end == std::string::npos) break;
        if (!log.substr(at, end + 1 - at).ends_with(ownLine)) continue;
        const std::size_t next = log.find(startText, end);
        const std::size_t begin = BlockBegin(log, at);
        if (next == std::string::npos) return log.substr(begin);
        return log.substr(begin, BlockBegin(log, next) - begin);
    }
    return "";
}

std::string BlockAt(const LogPlace& place) {
    return LogBlock(Tail(place.log, place.from), place.commandFile);
}

}  // namespace runner
