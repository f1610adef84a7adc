// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Answers as the library below takes them. Only for the files of this folder.
#pragma once

#include <microhttpd.h>

#include <memory>

#include "companion/http/Service.h"

namespace server {

struct ResponseDestroyed {
    void operator()(MHD_Response* response) const { MHD_destroy_response(response); }
};
using OwnedResponse = std::unique_ptr<MHD_Response, ResponseDestroyed>;

/// With the headers that every answer has; of the last answer of a connection one that says so.
/// Nothing: one of its headers is none, or there is no memory.
OwnedResponse Made(const http::Response& answer, bool isLast);

/// Asks the function for pieces, with that argument.
OwnedResponse Made(const http::Stream& stream, MHD_ContentReaderCallback pieces, void* argument);

/// Answers of the server itself.
http::Response Failed();
http::Response Ending();
http::Response TooManyStreams();

}  // namespace server
