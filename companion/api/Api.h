// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What voltisd answers, without a connection.
#pragma once

#include "companion/api/Settings.h"
#include "companion/http/Caller.h"
#include "companion/http/Service.h"
#include "companion/journal/Journal.h"

namespace api {

class Api {
  public:
    /// Both must outlive it, and every Later and Stream that it has answered with. The settings may
    /// change between two calls.
    Api(journal::Journal& journal, const Settings& settings)
        : journal_(journal), settings_(settings) {}

    /// Of a request whose segments are filled. The answer to HEAD is that to GET, body and all,
    /// which is left out where it is sent. A journal that fails is a problem of its own; what else
    /// is thrown is std::exception.
    http::Reply Answer(const http::Request& request, const http::Caller& caller);

    /// Whether anybody may ask that, without a token; then the caller may be one without rights.
    static bool IsOpen(const http::Request& request);

  private:
    journal::Journal& journal_;
    const Settings& settings_;
};

}  // namespace api
