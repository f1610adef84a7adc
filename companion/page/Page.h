// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The page for the technician: what its paths answer, without a connection. All of it is HTML that
// works without a script; the script only shows what is new.
//
//   GET  /                      the registers, jobs in doubt, the queue, the last jobs
//   GET  /jobs/NUMBER           all about a job
//   GET  /jobs/NUMBER/trace.svg the conversation of its run
//   POST /jobs/NUMBER/resolve   decision, note, _csrf
//   POST /jobs/NUMBER/withdraw  _csrf
//   GET  /login                 the form to log in with; POST is the gate's
//   GET  /page.css, /page.js, /page.svg
#pragma once

#include <optional>
#include <string>

#include "companion/api/Settings.h"
#include "companion/http/Caller.h"
#include "companion/http/Message.h"
#include "companion/journal/Journal.h"

namespace page {

class Page {
  public:
    /// Both must outlive it. What settings has counts at the time of a request.
    Page(journal::Journal& journal, const api::Settings& settings)
        : journal_(journal), settings_(settings) {}

    /// What everybody may see, before they have logged in: /login and the files beside the pages.
    /// Nothing: the request is for something else.
    static std::optional<http::Response> AnswerAnyone(const http::Request& request);

    /// For who was let in, which is the gate's to decide, with the CSRF token of their session;
    /// empty: they came without one. Nothing: the path is none of the page's.
    std::optional<http::Response> Answer(const http::Request& request, const http::Caller& caller,
                                         const std::string& csrf) const;

    /// What a person sees instead of a refusal in JSON: the form to log in with, or a page that
    /// says what it says. For other paths than those of the page and /logout, and for programs,
    /// which do not ask for HTML, it stays as it is.
    static http::Response ForPerson(const http::Request& request, http::Response refusal);

  private:
    journal::Journal& journal_;
    const api::Settings& settings_;
};

}  // namespace page
