// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Every request: let in or refused, answered, and told to the log.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "companion/api/Api.h"
#include "companion/gate/Gate.h"
#include "companion/http/Access.h"
#include "companion/http/Service.h"
#include "companion/page/Page.h"
#include "voltisd/RefusalLog.h"

namespace voltisd {

class Door : public http::Service {
  public:
    using Clock = std::function<gate::Time()>;
    /// Answers of one token that are waited for, or go on, at once. There, a result is not waited
    /// for any longer, and a stream is refused.
    static constexpr int mostAwaited = 64;

    /// They must outlive it. The rules are those that the gate was given.
    Door(gate::Gate& gate, api::Api& api, page::Page& page, http::AccessRules rules,
         Clock clock = std::chrono::steady_clock::now)
        : gate_(gate), api_(api), page_(page), rules_(std::move(rules)), clock_(std::move(clock)) {}

    http::Reply Answer(const http::Request& request) override;

    void SetRules(http::AccessRules rules) { rules_ = std::move(rules); }
    /// Called after each request that was let in and may have changed something, so that who waits
    /// is told.
    void OnChange(std::function<void()> call) { onChange_ = std::move(call); }
    /// A line for each request that was refused, or that wanted to change something: the caller,
    /// the method, the path, the status. Nothing of the bodies. Of those who come too often, one a
    /// minute.
    void OnLine(std::function<void(const std::string&)> call) { onLine_ = std::move(call); }

  private:
    struct Visit {
        http::Request request;
        std::string caller;
    };

    bool AsksFirst(const http::Request& request) const;
    http::Response Preflight(const http::Request& request);
    std::optional<http::Reply> AnswerAnyone(const http::Request& request);
    http::Reply Decide(Visit& visit);
    std::shared_ptr<int> PlaceFor(const Visit& visit);
    http::Reply WithPlace(const Visit& visit, http::Reply reply);
    http::Reply Finished(const Visit& visit, http::Reply reply);
    http::Response Finished(const Visit& visit, http::Response response);
    void Tell(const Visit& visit, int status);

    gate::Gate& gate_;
    api::Api& api_;
    page::Page& page_;
    http::AccessRules rules_;
    Clock clock_;
    RefusalLog refusals_;
    std::map<std::string, std::weak_ptr<int>> awaited_;  // by token: how many there are
    std::function<void()> onChange_ = [] {};
    std::function<void(const std::string&)> onLine_ = [](const std::string&) {};
};

}  // namespace voltisd
