// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/server/Incoming.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <string_view>

#include "companion/http/Problem.h"
#include "companion/runner/Utf8.h"

namespace server {

namespace {

using http::ProblemOf;
using http::Response;
using Refusal = std::optional<Response>;
using Headers = std::vector<std::pair<std::string, std::string>>;

constexpr std::string_view digits = "0123456789";
constexpr std::string_view capitals = "ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr std::string_view smallLetters = "abcdefghijklmnopqrstuvwxyz";
constexpr std::string_view furtherOfTokens = "!#$%&'*+-.^_`|~";  // RFC 9110 5.6.2

// A second one would be for another reader to choose from.
constexpr std::array once = {"authorization",   "content-encoding",
                             "content-length",  "content-type",
                             "expect",          "host",
                             "idempotency-key", "last-event-id",
                             "origin",          "sec-fetch-dest",
                             "sec-fetch-mode",  "sec-fetch-site",
                             "sec-fetch-user",  "transfer-encoding",
                             "x-csrf-token"};
// Readers of folded lines take what is left of such a line for a name that begins with these.
constexpr std::array ofFraming = {"content-length", "host", "transfer-encoding"};

bool IsIn(std::string_view letters, char letter) {
    return letters.find(letter) != std::string_view::npos;
}

bool IsOfToken(char letter) {
    return IsIn(smallLetters, letter) || IsIn(capitals, letter) || IsIn(digits, letter) ||
           IsIn(furtherOfTokens, letter);
}

bool IsToken(const std::string& text) {
    return !text.empty() && std::ranges::all_of(text, IsOfToken);
}

bool IsNumber(const std::string& text) {
    constexpr std::size_t longest = 18;  // what 64 bits hold in any case
    return !text.empty() && text.size() <= longest &&
           std::ranges::all_of(text, [](char letter) { return IsIn(digits, letter); });
}

bool IsControl(char letter) {
    const auto code = static_cast<unsigned char>(letter);
    return code < 0x20 || code == 0x7F;
}

char InSmall(char letter) {
    const std::size_t at = capitals.find(letter);
    return at == std::string_view::npos ? letter : smallLetters[at];
}

std::string InSmall(std::string text) {
    std::ranges::transform(text, text.begin(), [](char letter) { return InSmall(letter); });
    return text;
}

std::string WithoutBlanks(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string::npos) return "";
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        if (runner::NextCharacter(text) == runner::noCharacter) return false;
    }
    return true;
}

// --- headers ---------------------------------------------------------------------------------

Refusal BadHeader(const std::string& detail) {
    return ProblemOf(400, "bad-header", detail);
}

// A name is shown only when it is one.
Refusal RefusalOfHeader(const std::string& name, const std::string& value) {
    if (!IsToken(name)) return BadHeader("A header has a name that is none");
    const auto isOther = [](char letter) { return letter != '\t' && IsControl(letter); };
    if (std::ranges::any_of(value, isOther))
        return BadHeader("The header '" + name + "' has a control character in its value");
    for (const char* framing : ofFraming) {
        if (const std::string small = InSmall(name); small != framing && small.starts_with(framing))
            return BadHeader("The header '" + name + "' could be taken for another one");
    }
    return std::nullopt;
}

std::size_t SizeOf(const Headers& headers) {
    std::size_t size = 0;
    for (const auto& [name, value] : headers) size += name.size() + value.size();
    return size;
}

Refusal RefusalOfEach(const Headers& headers) {
    std::set<std::string> seen;
    for (const auto& [name, value] : headers) {
        if (Refusal refusal = RefusalOfHeader(name, value)) return refusal;
        const std::string small = InSmall(name);
        if (!seen.insert(small).second && std::ranges::find(once, small) != once.end())
            return BadHeader("The header '" + name + "' is there more than once");
    }
    return std::nullopt;
}

const std::string* Find(const Headers& headers, std::string_view wanted) {
    const auto found = std::ranges::find_if(
        headers, [&](const auto& header) { return InSmall(header.first) == wanted; });
    return found == headers.end() ? nullptr : &found->second;
}

// RFC 9112 6.
Refusal RefusalOfFraming(const Headers& headers) {
    const std::string* const length = Find(headers, "content-length");
    const std::string* const encoding = Find(headers, "transfer-encoding");
    if (length && encoding) return BadHeader("The body has both a length and an encoding");
    if (length && !IsNumber(WithoutBlanks(*length)))
        return BadHeader("The length of the body is no number");
    if (encoding && InSmall(WithoutBlanks(*encoding)) != "chunked")
        return BadHeader("The body has an encoding other than 'chunked'");
    return std::nullopt;
}

Refusal RefusalOfHeaders(const Headers& headers, const RequestLimits& limits) {
    if (headers.size() > limits.headers || SizeOf(headers) > limits.head)
        return ProblemOf(431, "too-many-headers", "The headers are too many, or too long");
    if (Refusal refusal = RefusalOfEach(headers)) return refusal;
    return RefusalOfFraming(headers);
}

std::map<std::string, std::string> Joined(const Headers& headers) {
    std::map<std::string, std::string> joined;
    for (const auto& [name, value] : headers) {
        const std::string small = InSmall(name);
        const auto [at, isFirst] = joined.try_emplace(small, WithoutBlanks(value));
        if (!isFirst) at->second += (small == "cookie" ? "; " : ", ") + WithoutBlanks(value);
    }
    return joined;
}

// --- path and query --------------------------------------------------------------------------

int ValueOf(char digit) {
    if (IsIn(digits, digit)) return digit - '0';
    const char small = InSmall(digit);
    return small >= 'a' && small <= 'f' ? small - 'a' + 10 : -1;
}

// Nothing: bytes that stand for nothing, or for what no text has.
std::optional<std::string> Decoded(std::string_view text) {
    std::string decoded;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '%') {
            decoded += text[at];
            continue;
        }
        const int high = at + 2 < text.size() ? ValueOf(text[at + 1]) : -1;
        const int low = at + 2 < text.size() ? ValueOf(text[at + 2]) : -1;
        if (high < 0 || low < 0) return std::nullopt;
        decoded += static_cast<char>(high * 16 + low);
        at += 2;
    }
    if (std::ranges::any_of(decoded, IsControl) || !IsUtf8(decoded)) return std::nullopt;
    return decoded;
}

std::vector<std::string_view> Split(std::string_view text, char at) {
    std::vector<std::string_view> parts;
    while (true) {
        const std::size_t end = text.find(at);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) return parts;
        text.remove_prefix(end + 1);
    }
}

bool IsVisibleAscii(std::string_view text) {
    return std::ranges::all_of(text, [](char letter) { return letter > ' ' && letter < 0x7F; });
}

Response BadTarget(const std::string& detail) {
    return ProblemOf(400, "bad-target", detail);
}

// Of a text that begins with a slash. That of "/" has no parts.
Refusal TakePath(std::string_view text, http::Request& request) {
    if (text == "/") {
        request.path = text;
        return std::nullopt;
    }
    for (const std::string_view part : Split(text.substr(1), '/')) {
        const std::optional<std::string> segment = Decoded(part);
        if (!segment) return BadTarget("The path has a byte that stands for no character");
        if (*segment == "." || *segment == "..") return BadTarget("The path has '.' or '..' in it");
        request.path += "/" + *segment;
        request.segments.push_back(*segment);
    }
    return std::nullopt;
}

std::optional<std::string> DecodedOfQuery(std::string_view text) {
    std::string blanks(text);
    std::ranges::replace(blanks, '+', ' ');
    return Decoded(blanks);
}

Refusal TakeParameter(std::string_view text, http::Request& request) {
    const std::size_t mark = std::min(text.find('='), text.size());
    const auto name = DecodedOfQuery(text.substr(0, mark));
    const auto value = DecodedOfQuery(text.substr(std::min(mark + 1, text.size())));
    if (!name || !value) return BadTarget("The query has a byte that stands for no character");
    if (request.query.emplace(*name, *value).second) return std::nullopt;
    return BadTarget("The query has a name more than once");
}

Refusal TakeQuery(std::string_view text, const RequestLimits& limits, http::Request& request) {
    const std::vector<std::string_view> parts = Split(text, '&');
    if (parts.size() > limits.parameters) return BadTarget("The query has too many names");
    for (const std::string_view part : parts) {
        if (part.empty()) continue;
        if (Refusal refusal = TakeParameter(part, request)) return refusal;
    }
    return std::nullopt;
}

bool IsForTheWholeServer(const Head& head) {
    return head.method == "OPTIONS" && head.target == "*";
}

Refusal TakeTarget(const Head& head, const RequestLimits& limits, http::Request& request) {
    if (head.target.size() > limits.target)
        return ProblemOf(414, "target-too-long", "The path and the query are too long");
    if (IsForTheWholeServer(head)) {
        request.path = head.target;
        return std::nullopt;
    }
    const std::string_view target = head.target;
    if (!target.starts_with('/') || !IsVisibleAscii(target))
        return BadTarget("The target is no path of visible ASCII characters");
    const std::size_t mark = std::min(target.find('?'), target.size());
    if (Refusal refusal = TakePath(target.substr(0, mark), request)) return refusal;
    if (mark == target.size()) return std::nullopt;
    return TakeQuery(target.substr(mark + 1), limits, request);
}

Refusal RefusalOfMethod(const std::string& method) {
    constexpr std::size_t longest = 32;
    const bool isOne = !method.empty() && method.size() <= longest &&
                       std::ranges::all_of(method, [](char letter) { return IsOfToken(letter); });
    if (isOne) return std::nullopt;
    return ProblemOf(400, "bad-method", "The method is no word");
}

}  // namespace

Response TooLarge(const RequestLimits& limits) {
    return ProblemOf(413, "too-large",
                     "A body has at most " + std::to_string(limits.body) + " bytes here");
}

std::optional<std::uint64_t> AnnouncedLength(const http::Request& request) {
    const std::string length = request.Header("content-length");
    if (!IsNumber(length)) return std::nullopt;
    return std::stoull(length);
}

std::variant<http::Request, Response> RequestOf(const Head& head, const RequestLimits& limits) {
    http::Request request;
    if (Refusal refusal = RefusalOfMethod(head.method)) return *refusal;
    if (Refusal refusal = TakeTarget(head, limits, request)) return *refusal;
    if (Refusal refusal = RefusalOfHeaders(head.headers, limits)) return *refusal;
    request.method = head.method;
    request.headers = Joined(head.headers);
    return request;
}

}  // namespace server
