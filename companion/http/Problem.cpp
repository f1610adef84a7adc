// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/http/Problem.h"

#include <array>

namespace http {

namespace {

using Json = nlohmann::ordered_json;

struct StatusRow {
    int status;
    const char* phrase;
};

// RFC 9110 15, RFC 6585.
constexpr std::array statuses = {
    StatusRow{200, "OK"},
    StatusRow{202, "Accepted"},
    StatusRow{204, "No Content"},
    StatusRow{303, "See Other"},
    StatusRow{304, "Not Modified"},
    StatusRow{400, "Bad Request"},
    StatusRow{401, "Unauthorized"},
    StatusRow{403, "Forbidden"},
    StatusRow{404, "Not Found"},
    StatusRow{405, "Method Not Allowed"},
    StatusRow{406, "Not Acceptable"},
    StatusRow{408, "Request Timeout"},
    StatusRow{409, "Conflict"},
    StatusRow{410, "Gone"},
    StatusRow{413, "Content Too Large"},
    StatusRow{414, "URI Too Long"},
    StatusRow{415, "Unsupported Media Type"},
    StatusRow{421, "Misdirected Request"},
    StatusRow{422, "Unprocessable Content"},
    StatusRow{429, "Too Many Requests"},
    StatusRow{431, "Request Header Fields Too Large"},
    StatusRow{500, "Internal Server Error"},
    StatusRow{503, "Service Unavailable"},
};

}  // namespace

const char* Phrase(int status) {
    for (const StatusRow& row : statuses) {
        if (row.status == status) return row.phrase;
    }
    return "";
}

Response ProblemOf(int status, const std::string& name, const std::string& detail,
                   const Json& further) {
    Json json = {{"type", "urn:voltis:problem:" + name},
                 {"title", Phrase(status)},
                 {"status", status},
                 {"detail", detail}};
    if (further.is_object()) json.update(further);
    return {status, "application/problem+json",
            json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n"};
}

}  // namespace http
