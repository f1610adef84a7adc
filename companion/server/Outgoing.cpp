// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/server/Outgoing.h"

#include <strings.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "companion/http/Problem.h"

namespace server {

namespace {

using Headers = std::vector<std::pair<std::string, std::string>>;

bool Has(const Headers& headers, const char* wanted) {
    return std::ranges::any_of(
        headers, [&](const auto& header) { return strcasecmp(header.first.c_str(), wanted) == 0; });
}

bool Add(MHD_Response& response, const char* name, const std::string& value) {
    return MHD_add_response_header(&response, name, value.c_str()) == MHD_YES;
}

// False: one of them is none.
bool AddHeaders(MHD_Response& response, const std::string& type, const Headers& headers) {
    bool areGood = type.empty() || Add(response, "Content-Type", type);
    for (const auto& [name, value] : headers)
        areGood = Add(response, name.c_str(), value) && areGood;
    if (!Has(headers, "Cache-Control"))
        areGood = Add(response, "Cache-Control", "no-store") && areGood;
    return Add(response, "X-Content-Type-Options", "nosniff") && areGood;
}

http::Response RetriedAfter(int seconds, http::Response response) {
    response.headers.emplace_back("Retry-After", std::to_string(seconds));
    return response;
}

}  // namespace

OwnedResponse Made(const http::Response& answer, bool isLast) {
    std::string body = answer.type.empty() ? "" : answer.body;
    OwnedResponse made(
        MHD_create_response_from_buffer(body.size(), body.data(), MHD_RESPMEM_MUST_COPY));
    if (!made || !AddHeaders(*made, answer.type, answer.headers)) return nullptr;
    if (isLast && !Add(*made, "Connection", "close")) return nullptr;
    return made;
}

OwnedResponse Made(const http::Stream& stream, MHD_ContentReaderCallback pieces, void* argument) {
    constexpr std::size_t piece = 4096;
    OwnedResponse made(
        MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, piece, pieces, argument, nullptr));
    if (!made || !AddHeaders(*made, stream.type, stream.headers)) return nullptr;
    return made;
}

http::Response Failed() {
    return http::ProblemOf(500, "internal", "The service could not answer; its log says why");
}

http::Response Ending() {
    return RetriedAfter(
        1, http::ProblemOf(503, "ending", "The service ends; it may be there again soon"));
}

http::Response TooManyStreams() {
    return RetriedAfter(
        5, http::ProblemOf(429, "too-many-streams", "Another stream has to be closed first"));
}

}  // namespace server
