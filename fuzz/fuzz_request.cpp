// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The door of the service: whatever a request is made of, it is refused with a status that fits, or
// it becomes a request that nobody can understand in another way; and one that is let in was asked
// for under a name of the service, by no page of another origin.
//
// An input is: the method, a blank and the target; lines of headers; an empty line; the body.

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <variant>

#include "companion/http/Access.h"
#include "companion/server/Incoming.h"
#include "fuzz/Property.h"

namespace {

Tally tally("fuzz_request", "of them let in");

const server::RequestLimits limits = {64UL * 1024, 200, 400, 8, 4};
const http::AccessRules rules = {{"kassa.lan"}, {"https://till.example"}, false};

std::string SmallLetters(std::string text) {
    for (char& letter : text)
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    return text;
}

server::Head HeadIn(const std::string& text, std::string& body) {
    std::istringstream in(text);
    std::string line;
    std::getline(in, line);
    server::Head head;
    head.method = line.substr(0, line.find(' '));
    if (head.method.size() < line.size()) head.target = line.substr(head.method.size() + 1);
    while (std::getline(in, line) && !line.empty()) {
        const std::size_t colon = std::min(line.find(':'), line.size());
        head.headers.emplace_back(line.substr(0, colon),
                                  line.substr(std::min(colon + 1, line.size())));
    }
    std::getline(in, body, '\0');
    return head;
}

void RequireProblem(const http::Response& refusal) {
    const auto json = nlohmann::json::parse(refusal.body);
    Require(refusal.type == "application/problem+json", "a refusal is a problem");
    Require(json["status"] == refusal.status, "with its status");
    const int status = refusal.status;
    Require(status == 400 || status == 414 || status == 431, "a status of a bad head");
}

// The library throws at bytes that are no UTF-8.
void RequireText(const std::string& text) {
    try {
        nlohmann::json(text).dump();
    } catch (const nlohmann::json::exception&) {
        Require(false, "a text is UTF-8");
    }
    Require(std::ranges::none_of(text,
                                 [](char c) {
                                     const auto code = static_cast<unsigned char>(c);
                                     return code < 0x20 || code == 0x7f;
                                 }),
            "and without control characters");
}

std::string Encoded(const std::string& text) {
    std::string encoded;
    for (const char letter : text) {
        char code[4];
        snprintf(code, sizeof code, "%%%02X",
                 static_cast<unsigned>(static_cast<unsigned char>(letter)));
        encoded += code;
    }
    return encoded;
}

void RequirePath(const http::Request& request) {
    if (request.path == "*") return;
    std::string joined;
    std::string encoded;
    for (const std::string& segment : request.segments) {
        RequireText(segment);
        Require(segment != "." && segment != "..", "no way up");
        joined += "/" + segment;
        encoded += "/" + Encoded(segment);
    }
    const bool isRoot = request.segments.empty();
    RequireEqual(request.path, isRoot ? "/" : joined, "the path is its segments");
    const auto again = server::RequestOf({"GET", isRoot ? "/" : encoded, {}}, {});
    Require(std::holds_alternative<http::Request>(again), "what is encoded is let in");
    Require(std::get<http::Request>(again).segments == request.segments, "and decoded again");
}

void RequireQuery(const http::Request& request) {
    Require(request.query.size() <= limits.parameters, "so many names in a query");
    for (const auto& [name, value] : request.query) {
        RequireText(name);
        RequireText(value);
    }
}

// Whoever takes the first, the last or all of them reads the same.
void RequireOneMeaning(const server::Head& head, const http::Request& request) {
    std::map<std::string, int> count;
    std::size_t size = 0;
    for (const auto& [name, value] : head.headers) {
        ++count[SmallLetters(name)];
        size += name.size() + value.size();
        Require(name.find_first_of(" \t\r\n:") == std::string::npos, "no blank in a name");
    }
    Require(size <= limits.head && head.headers.size() <= limits.headers, "so many headers");
    Require(count.size() == request.headers.size(), "all headers, and no others");
    for (const char* name : {"host", "authorization", "content-length", "transfer-encoding",
                             "idempotency-key", "content-type", "origin", "sec-fetch-site"})
        Require(count[name] <= 1, "each of these once");
    Require(count["content-length"] + count["transfer-encoding"] <= 1, "one way to find the end");
    if (count["transfer-encoding"] > 0)
        RequireEqual(SmallLetters(request.Header("transfer-encoding")), "chunked", "the encoding");
    if (count["content-length"] > 0)
        Require(server::AnnouncedLength(request).has_value(), "the length is a number");
}

void RequireAccess(const http::Request& request) {
    const auto host = http::HostName(request.Header("host"));
    if (host) {
        Require(http::HostName(*host) == host, "a name is the name of itself");
        Require(SmallLetters(*host) == *host, "in small letters");
    }
    if (const auto refusal = http::RefusalOf(request, rules)) {
        Require(refusal->status == 400 || refusal->status == 403 || refusal->status == 421,
                "a status of a refusal");
        return;
    }
    tally.Count();
    Require(host == "localhost" || host == "127.0.0.1" || host == "[::1]" || host == "kassa.lan",
            "a name of the service");
    const std::string origin = SmallLetters(request.Header("origin"));
    Require(origin.empty() || origin == "https://till.example" ||
                origin == "http://" + SmallLetters(request.Header("host")),
            "no page of another origin");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    tally.Input();
    std::string body;
    const server::Head head = HeadIn(AsText(data, size), body);
    auto taken = server::RequestOf(head, limits);
    if (const auto* refusal = std::get_if<http::Response>(&taken)) {
        RequireProblem(*refusal);
        return 0;
    }
    auto& request = std::get<http::Request>(taken);
    request.body = body;
    request.peer.address = "127.0.0.1";
    RequireEqual(request.method, head.method, "the method");
    RequirePath(request);
    RequireQuery(request);
    RequireOneMeaning(head, request);
    RequireAccess(request);
    return 0;
}
