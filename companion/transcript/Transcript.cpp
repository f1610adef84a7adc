// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/transcript/Transcript.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <system_error>

#include "companion/transcript/LogLine.h"

namespace transcript {

namespace {

constexpr std::string_view statistics = "I/O statistics : OUT frames = ";

bool IsCut(std::string_view lastLine) {
    return lastLine.starts_with("PC->ECR") || lastLine.starts_with("PC<-ECR");
}

void Add(const LogLine& line, Transcript& all) {
    switch (line.kind) {
        case LineKind::Block:
            all.blocks.push_back({line.toRegister, line.bytes});
            return;
        case LineKind::Lost:  // no line of the driver's
        case LineKind::Damaged:
            all.damaged = true;
            return;
        case LineKind::Message:
            all.framesSent = FramesSent(line.text);
            return;
        case LineKind::Other:
            return;
    }
}

}  // namespace

std::optional<int> FramesSent(std::string_view message) {
    if (!message.starts_with(statistics)) return std::nullopt;
    message.remove_prefix(statistics.size());
    int number = 0;
    const auto [end, error] =
        std::from_chars(message.data(), message.data() + message.size(), number);
    return error == std::errc() ? std::optional(number) : std::nullopt;
}

bool Transcript::Whole() const {
    const auto sent = std::count_if(blocks.begin(), blocks.end(),
                                    [](const Block& block) { return block.toRegister; });
    return !damaged && framesSent == static_cast<int>(sent);
}

Transcript ReadLog(std::string_view log) {
    Transcript all;
    LogLine line;
    while (!log.empty() && !all.framesSent) {
        const std::size_t end = std::min(log.find('\n'), log.size());
        // A block line is whole only when its line feed is there.
        if (end == log.size() && IsCut(log)) {
            all.damaged = true;
            break;
        }
        ReadLine(log.substr(0, end), line);
        Add(line, all);
        log.remove_prefix(std::min(end + 1, log.size()));
    }
    return all;
}

}  // namespace transcript
