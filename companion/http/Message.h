// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// A request and its answer, without a connection.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace http {

/// Who is at the other end.
struct Peer {
    std::string address;                 // without the port; empty: the Unix socket
    std::optional<std::string> account;  // of the Unix socket's peer, as the kernel tells
    bool mayPrint = false;               // that account, by its group

    bool IsLocal() const { return address.empty(); }
};

struct Request {
    std::string method;
    std::string path;                            // decoded, without the query
    std::vector<std::string> segments = {};      // of the path, as SegmentsOf has them (Path.h)
    std::map<std::string, std::string> query;    // decoded
    std::map<std::string, std::string> headers;  // names in small letters
    std::string body;
    Peer peer;

    /// The value of a header, named in small letters; empty: there is none.
    std::string Header(const std::string& name) const;
};

struct Response {
    int status = 200;
    std::string type;  // of the body; empty: there is no body
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers = {};
};

}  // namespace http
