// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/client/Answer.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace client {

namespace {

constexpr std::string_view endOfLine = "\r\n";
constexpr std::string_view endOfHead = "\r\n\r\n";
constexpr int firstFinal = 200, noContent = 204, notModified = 304;

bool IsDigit(char letter) {
    return letter >= '0' && letter <= '9';
}

bool IsControl(char letter) {
    const auto code = static_cast<unsigned char>(letter);
    return code < 0x20 || code == 0x7F;
}

// RFC 9110 5.6.2.
bool IsOfToken(char letter) {
    constexpr std::string_view further = "!#$%&'*+-.^_`|~";
    return IsDigit(letter) || (letter >= 'a' && letter <= 'z') ||
           (letter >= 'A' && letter <= 'Z') || further.find(letter) != std::string_view::npos;
}

std::string InSmallLetters(std::string_view text) {
    std::string small(text);
    std::ranges::transform(small, small.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    });
    return small;
}

std::string_view Trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

// "HTTP/1.1 200 OK"
int StatusIn(std::string_view line) {
    constexpr std::size_t code = 9, after = code + 3;
    const bool isOne = (line.starts_with("HTTP/1.1 ") || line.starts_with("HTTP/1.0 ")) &&
                       line.size() >= after &&
                       std::ranges::all_of(line.substr(code, after - code), IsDigit) &&
                       (line.size() == after || line[after] == ' ');
    if (!isOne) throw BadAnswer("the status line is none");
    const int status =
        (line[code] - '0') * 100 + (line[code + 1] - '0') * 10 + line[code + 2] - '0';
    constexpr int least = 100, most = 599;
    if (status < least || status > most) throw BadAnswer("there is no such status");
    return status;
}

void TakeHeader(std::string_view line, Answer& answer) {
    const std::size_t colon = line.find(':');
    const std::string_view name = line.substr(0, colon);
    if (colon == std::string_view::npos || name.empty() || !std::ranges::all_of(name, IsOfToken))
        throw BadAnswer("a header has a name that is none");
    const std::string_view value = Trimmed(line.substr(colon + 1));
    if (std::ranges::any_of(value, [](char letter) { return letter != '\t' && IsControl(letter); }))
        throw BadAnswer("a header has a control character in its value");
    const auto [at, isFirst] = answer.headers.try_emplace(InSmallLetters(name), value);
    if (isFirst) return;
    if (at->first == "content-length") throw BadAnswer("the body has two lengths");
    if (value.empty()) return;
    at->second += (at->second.empty() ? "" : ", ") + std::string(value);
}

// The lines up to the empty one.
Answer HeadOf(std::string_view head) {
    Answer answer;
    answer.status = StatusIn(head.substr(0, head.find(endOfLine)));
    for (std::size_t at = head.find(endOfLine); at != std::string_view::npos;) {
        const std::size_t begin = at + endOfLine.size();
        at = head.find(endOfLine, begin);
        TakeHeader(head.substr(begin, at == std::string_view::npos ? at : at - begin), answer);
    }
    if (answer.headers.contains("transfer-encoding"))
        throw BadAnswer("the body comes in another form than as it is");
    return answer;
}

std::optional<std::size_t> LengthIn(const Answer& answer) {
    if (answer.status == noContent || answer.status == notModified) return 0;
    const auto header = answer.headers.find("content-length");
    if (header == answer.headers.end()) return std::nullopt;
    const std::string& text = header->second;
    std::size_t length = 0;
    const char* const end = text.c_str() + text.size();
    const auto [rest, error] = std::from_chars(text.c_str(), end, length);
    if (error != std::errc() || rest != end || length > longestBody)
        throw BadAnswer("the length of the body is none, or too great");
    return length;
}

// Nothing: more is to come.
std::optional<std::string> BodyIn(std::string_view rest, std::optional<std::size_t> length,
                                  bool isEnd) {
    if (length && rest.size() >= *length) return std::string(rest.substr(0, *length));
    if (rest.size() > longestBody) throw BadAnswer("the body is too long");
    if (!isEnd) return std::nullopt;
    if (length) throw BadAnswer("the connection was closed in the middle of the answer");
    return std::string(rest);
}

}  // namespace

std::string Answer::Header(const std::string& name) const {
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
}

std::optional<Answer> AnswerIn(std::string_view received, bool isEnd) {
    while (true) {
        const std::size_t end = received.find(endOfHead);
        if (std::min(end, received.size()) > longestHead)
            throw BadAnswer("the headers are too long");
        if (end == std::string_view::npos) {
            if (isEnd) throw BadAnswer("the connection was closed before the answer");
            return std::nullopt;
        }
        Answer answer = HeadOf(received.substr(0, end));
        received.remove_prefix(end + endOfHead.size());
        if (answer.status < firstFinal) continue;
        auto body = BodyIn(received, LengthIn(answer), isEnd);
        if (!body) return std::nullopt;
        answer.body = *std::move(body);
        return answer;
    }
}

}  // namespace client
