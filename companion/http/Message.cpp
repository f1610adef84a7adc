// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/http/Message.h"

namespace http {

std::string Request::Header(const std::string& name) const {
    const auto header = headers.find(name);
    return header == headers.end() ? "" : header->second;
}

}  // namespace http
