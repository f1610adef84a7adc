// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The answer of the service as voltisctl takes it: whatever the bytes are, they are refused, or an
// answer that means the same however it comes over the line.

#include <algorithm>
#include <optional>
#include <string>

#include "companion/client/Answer.h"
#include "fuzz/Property.h"

namespace {

Tally tally("fuzz_answer", "of them whole");

struct Read {
    bool isBad = false;
    std::optional<client::Answer> answer;
};

Read ReadIn(const std::string& text, bool isEnd) {
    try {
        return {false, client::AnswerIn(text, isEnd)};
    } catch (const client::BadAnswer&) {
        return {true, {}};
    }
}

void RequireSame(const Read& read, const client::Answer& answer) {
    Require(read.answer.has_value(), "it is an answer here, too");
    Require(read.answer->status == answer.status, "of the same status");
    Require(read.answer->headers == answer.headers, "with the same headers");
    RequireEqual(read.answer->body, answer.body, "and the same body");
}

void RequireSense(const client::Answer& answer) {
    Require(answer.status >= 200 && answer.status <= 599, "a final status");
    Require(answer.body.size() <= client::longestBody, "a body that is not too long");
    for (const auto& [name, value] : answer.headers) {
        Require(!name.empty() && name.find_first_of(" \t\r\n:") == std::string::npos, "a name");
        Require(std::ranges::none_of(name, [](char c) { return c >= 'A' && c <= 'Z'; }),
                "in small letters");
        Require(value.find_first_of("\r\n") == std::string::npos, "a value in one line");
    }
}

std::string Written(const client::Answer& answer) {
    std::string text = "HTTP/1.1 " + std::to_string(answer.status) + " \r\n";
    for (const auto& [name, value] : answer.headers)
        text.append(name).append(":").append(value).append("\r\n");
    return text + "\r\n" + answer.body;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tally.Input();
    const std::string text = AsText(data, size);
    const Read now = ReadIn(text, false);
    const Read last = ReadIn(text, true);
    Require(last.isBad || last.answer, "the end leaves nothing open");
    Require(!now.isBad || last.isBad, "what is bad does not become good by an end");
    if (now.answer) {
        RequireSame(last, *now.answer);
        RequireSame(ReadIn(text + "HTTP/1.1 500 x\r\n\r\n", false), *now.answer);
    }
    if (!last.answer) return 0;
    tally.Count();
    RequireSense(*last.answer);
    RequireSame(ReadIn(Written(*last.answer), true), *last.answer);
    return 0;
}
