#include "companion/transcript/Transcript.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <system_error>

namespace transcript {

namespace {

constexpr std::string_view toRegister = "PC->ECR";
constexpr std::string_view fromRegister = "PC<-ECR";
constexpr std::string_view statistics = "I/O statistics : OUT frames = ";
constexpr std::string_view thrownAway = "(ignored)";
constexpr std::size_t timeSize = 25;  // "22.11.2026 05:30:12.345  "

void SkipBlanks(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
}

bool Take(std::string_view& text, std::string_view word) {
    if (!text.starts_with(word)) return false;
    text.remove_prefix(word.size());
    return true;
}

// A number at the front of the text, after blanks.
std::optional<int> TakeNumber(std::string_view& text, int base = 10) {
    SkipBlanks(text);
    int number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc()) return std::nullopt;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return number;
}

// All of " 06 df 42"; false when something else is among the bytes.
bool TakeBytes(std::string_view text, std::vector<std::uint8_t>& bytes) {
    while (!text.empty()) {
        if (text.size() < 3 || text.front() != ' ') return false;
        std::string_view digits = text.substr(1, 2);
        const auto byte = TakeNumber(digits, 16);
        if (!byte || !digits.empty()) return false;
        bytes.push_back(static_cast<std::uint8_t>(*byte));
        text.remove_prefix(3);
    }
    return true;
}

// What follows the direction: "   4 bytes in    6.3 ms : (ignored) d9 06 df 42".
bool ReadBlock(std::string_view text, Block& block) {
    const auto size = TakeNumber(text);
    if (!size || !Take(text, " bytes ")) return false;
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos) return false;
    text.remove_prefix(colon + 1);
    std::string_view rest = text;
    SkipBlanks(rest);
    if (Take(rest, thrownAway)) text = rest;
    return TakeBytes(text, block.bytes) && block.bytes.size() == static_cast<std::size_t>(*size);
}

void ReadLine(std::string_view line, Transcript& all) {
    // Only where a message begins: a text that the driver quotes may say the same.
    std::string_view message = line.substr(std::min(timeSize, line.size()));
    if (Take(message, statistics)) {
        all.framesSent = TakeNumber(message);
        return;
    }
    Block block;
    block.toRegister = Take(line, toRegister);
    if (!block.toRegister && !Take(line, fromRegister)) return;
    if (ReadBlock(line, block)) {
        all.blocks.push_back(std::move(block));
    } else {
        all.damaged = true;
    }
}

}  // namespace

bool Transcript::Whole() const {
    const auto sent = std::count_if(blocks.begin(), blocks.end(),
                                    [](const Block& block) { return block.toRegister; });
    return !damaged && framesSent == static_cast<int>(sent);
}

Transcript ReadLog(std::string_view log) {
    Transcript all;
    while (!log.empty()) {
        const std::size_t end = std::min(log.find('\n'), log.size());
        // A block line is whole only when its line feed is there.
        if (end == log.size() && (log.starts_with(toRegister) || log.starts_with(fromRegister))) {
            all.damaged = true;
            break;
        }
        ReadLine(log.substr(0, end), all);
        log.remove_prefix(std::min(end + 1, log.size()));
    }
    return all;
}

}  // namespace transcript
