// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/gate/Gate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <string>
#include <variant>

#include "tests/support/TempDir.h"

using namespace std::chrono_literals;
using gate::Admission;
using gate::Gate;
using gate::Settings;
using http::Caller;
using http::Request;
using http::Response;
using http::Scope;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

const gate::Time start{100h};

std::string HeaderOf(const Response& response, const std::string& name) {
    for (const auto& [header, value] : response.headers)
        if (header == name) return value;
    return "";
}

// "urn:voltis:problem:no-token", or nothing when it was let in.
std::string ProblemIn(const Response& response) {
    const std::size_t begin = response.body.find("urn:voltis:problem:");
    if (begin == std::string::npos) return "status " + std::to_string(response.status);
    const std::size_t name = begin + std::string("urn:voltis:problem:").size();
    return std::to_string(response.status) + " " +
           response.body.substr(name, response.body.find('"', name) - name);
}

std::string ProblemIn(const Admission& admission) {
    const auto* const refusal = std::get_if<Response>(&admission);
    return refusal == nullptr ? "admitted" : ProblemIn(*refusal);
}

Settings Usual() {
    Settings settings;
    settings.access.hosts = {"kassa.lan"};
    settings.access.origins = {"https://till.example"};
    return settings;
}

class TheGate : public testing::Test {
  protected:
    Request Asking(const std::string& method = "GET", const std::string& path = "/v1/registers") {
        Request request;
        request.method = method;
        request.path = path;
        request.headers["host"] = "kassa.lan";
        request.peer.address = "192.168.1.5";
        return request;
    }
    Request With(const std::string& token, const std::string& method = "GET") {
        Request request = Asking(method);
        request.headers["authorization"] = "Bearer " + token;
        return request;
    }
    Admission Admit(const Request& request, gate::Time now = start) {
        return gate_.Admit(request, now);
    }
    Caller Admitted(const Request& request, gate::Time now = start) {
        const Admission admission = Admit(request, now);
        const auto* const caller = std::get_if<Caller>(&admission);
        EXPECT_NE(caller, nullptr) << ProblemIn(admission);
        return caller == nullptr ? Caller{} : *caller;
    }
    std::string Refused(const Request& request, gate::Time now = start) {
        return ProblemIn(Admit(request, now));
    }
    Response Answer(const Request& request, gate::Time now = start) {
        const Admission admission = Admit(request, now);
        const auto* const refusal = std::get_if<Response>(&admission);
        return refusal == nullptr ? Response{} : *refusal;
    }

    // --- sessions

    Request LogInForm(const std::string& token) {
        Request request = Asking("POST", "/login");
        request.headers["content-type"] = "application/x-www-form-urlencoded";
        request.body = "token=" + token;
        return request;
    }
    // The cookie that a browser sends from then on: "voltis=..."
    std::string CookieAfter(const Request& request, gate::Time now = start) {
        const std::string set = HeaderOf(gate_.LogIn(request, now), "Set-Cookie");
        return set.substr(0, set.find(';'));
    }
    std::string LogIn(gate::Time now = start) { return CookieAfter(LogInForm(till_), now); }
    Request Browsing(const std::string& cookie, const std::string& method = "GET") {
        Request request = Asking(method, "/");
        request.headers["cookie"] = cookie;
        return request;
    }
    Request Posting(const std::string& cookie) {
        Request request = Browsing(cookie, "POST");
        request.headers["x-csrf-token"] = gate_.CsrfOf(request, start);
        return request;
    }

    TempDir folder_;
    std::string path_ = folder_.File("tokens");
    std::string till_ = tokens::Add(path_, {"Till 1", {Scope::Print, Scope::Read}});
    std::string shop_ = tokens::Add(path_, {"shop", {Scope::Print}, "kitchen"});
    tokens::Book book_{path_};
    Gate gate_{Usual(), book_};
};

}  // namespace

// --- tokens
// --------------------------------------------------------------------------------------

using GateForTokens = TheGate;

TEST_F(GateForTokens, AdmitsARightOneWithItsScopes) {
    const Caller caller = Admitted(With(till_));
    EXPECT_EQ(caller.name, "Till 1");
    EXPECT_THAT(caller.scopes, ElementsAre(Scope::Print, Scope::Read));
    EXPECT_TRUE(caller.MayUse("bar"));
}

TEST_F(GateForTokens, AdmitsOneOfARegisterForThatOnly) {
    const Caller caller = Admitted(With(shop_));
    EXPECT_TRUE(caller.MayUse("kitchen"));
    EXPECT_FALSE(caller.MayUse("bar"));
    EXPECT_FALSE(caller.May(Scope::Read));
}

TEST_F(GateForTokens, AsksForOne) {
    EXPECT_EQ(Refused(Asking()), "401 no-token");
    EXPECT_EQ(HeaderOf(Answer(Asking()), "WWW-Authenticate"), "Bearer realm=\"voltis\"");
}

TEST_F(GateForTokens, AsksForOneOnTheMachineItself) {
    Request request = Asking();
    request.peer.address = "127.0.0.1";
    request.headers["host"] = "localhost:8080";
    EXPECT_EQ(Refused(request), "401 no-token");
}

TEST_F(GateForTokens, RefusesAWrongOne) {
    for (const std::string& token : {till_ + "0", till_.substr(3), std::string("vt_x")})
        EXPECT_EQ(Refused(With(token)), "401 bad-token");
    EXPECT_EQ(HeaderOf(Answer(With("x")), "WWW-Authenticate"),
              "Bearer realm=\"voltis\", error=\"invalid_token\"");
}

TEST_F(GateForTokens, RefusesOneThatIsRevoked) {
    ASSERT_EQ(Refused(With(till_)), "admitted");
    tokens::Revoke(path_, "Till 1");
    EXPECT_EQ(Refused(With(till_)), "401 bad-token");
    EXPECT_EQ(Refused(With(shop_)), "admitted");
}

TEST_F(GateForTokens, TakesTheSchemeInAnyLetters) {
    Request request = Asking();
    request.headers["authorization"] = "bEARER  " + till_ + " ";
    EXPECT_EQ(Refused(request), "admitted");
}

TEST_F(GateForTokens, TakesNoOtherScheme) {
    for (const std::string& given :
         {"Basic " + till_, till_, std::string("Bearer"), std::string("Bearer "),
          "Bearer " + till_ + " x", "Bearer " + till_ + ", Bearer " + shop_}) {
        Request request = Asking();
        request.headers["authorization"] = given;
        EXPECT_EQ(Refused(request), "400 bad-authorization") << given;
    }
}

TEST_F(GateForTokens, TakesNoneFromTheAddressOrTheBody) {
    Request request = Asking("POST");
    request.query["access_token"] = till_;
    request.headers["content-type"] = "application/x-www-form-urlencoded";
    request.body = "access_token=" + till_;
    EXPECT_EQ(Refused(request), "401 no-token");
}

TEST_F(GateForTokens, NeedsNoCsrfToken) {
    EXPECT_EQ(Refused(With(till_, "POST")), "admitted");
    EXPECT_EQ(Refused(With(till_, "DELETE")), "admitted");
}

TEST_F(GateForTokens, TakesNoneWhileTheFileIsSpoilt) {
    const std::string text = ReadWholeFile(path_);
    folder_.Write("tokens", text + "soup\n");
    const Response refusal = Answer(With(till_));
    EXPECT_EQ(ProblemIn(refusal), "503 tokens-unusable");
    EXPECT_THAT(refusal.body, Not(HasSubstr(path_)));
    EXPECT_THAT(book_.Trouble(), HasSubstr("line 5"));
    EXPECT_EQ(ProblemIn(gate_.LogIn(LogInForm(till_), start)), "503 tokens-unusable");
    folder_.Write("tokens", text);
    EXPECT_EQ(Refused(With(till_)), "admitted");
}

// --- pages of others
// -----------------------------------------------------------------------------

using GateForPages = TheGate;

TEST_F(GateForPages, RefusesOneOfAnotherOriginEvenWithAToken) {
    Request request = With(till_, "POST");
    request.headers["origin"] = "http://evil.example";
    EXPECT_EQ(Refused(request), "403 foreign-origin");
    request.headers.erase("origin");
    request.headers["sec-fetch-site"] = "cross-site";
    EXPECT_EQ(Refused(request), "403 foreign-origin");
}

TEST_F(GateForPages, RefusesANameThatSomebodyElseHasPointedHere) {
    Request request = With(till_);
    request.headers["host"] = "evil.example";
    request.headers["origin"] = "http://evil.example";
    EXPECT_EQ(Refused(request), "421 foreign-host");
}

TEST_F(GateForPages, RefusesAnotherOriginBeforeItAsksForAToken) {
    Request request = LogInForm(till_);
    request.headers["origin"] = "http://evil.example";
    EXPECT_EQ(ProblemIn(gate_.LogIn(request, start)), "403 foreign-origin");
    EXPECT_EQ(ProblemIn(gate_.LogOut(request, start)), "403 foreign-origin");
    EXPECT_EQ(ProblemIn(*gate_.Refuse(request, start)), "403 foreign-origin");
}

TEST_F(GateForPages, AdmitsAnOriginThatIsNamedWithAToken) {
    Request request = With(till_, "POST");
    request.headers["origin"] = "https://till.example";
    request.headers["sec-fetch-site"] = "cross-site";
    EXPECT_EQ(Refused(request), "admitted");
}

TEST_F(GateForPages, ShowsTheLogInPageWithoutAToken) {
    EXPECT_FALSE(gate_.Refuse(Asking("GET", "/login"), start).has_value());
}

// --- the Unix socket
// -----------------------------------------------------------------------------

using GateForAccounts = TheGate;

namespace {

Request FromAccount(const std::optional<std::string>& account, bool mayPrint) {
    Request request;
    request.method = "POST";
    request.path = "/v1/registers/default/jobs";
    request.peer = {"", account, mayPrint};
    return request;
}

}  // namespace

TEST_F(GateForAccounts, AdmitsOneOfTheGroupToEverything) {
    const Caller caller = Admitted(FromAccount("pos", true));
    EXPECT_EQ(caller.name, "pos");
    EXPECT_THAT(caller.scopes, ElementsAre(Scope::Print, Scope::Read, Scope::Resolve));
    EXPECT_TRUE(caller.MayUse("bar"));
}

TEST_F(GateForAccounts, RefusesAnyOther) {
    EXPECT_EQ(Refused(FromAccount("guest", false)), "403 not-in-group");
    EXPECT_EQ(Refused(FromAccount(std::nullopt, true)), "403 not-in-group");
    Request request = FromAccount("guest", false);
    request.headers["authorization"] = "Bearer " + till_;
    EXPECT_EQ(Refused(request), "403 not-in-group");
}

TEST_F(GateForAccounts, AdmitsThemWhileTheFileOfTokensIsSpoilt) {
    folder_.Write("tokens", "soup\n");
    EXPECT_EQ(Refused(FromAccount("pos", true)), "admitted");
}

TEST_F(GateForAccounts, DoesNotCountThem) {
    for (int i = 0; i < 2000; ++i) ASSERT_EQ(Refused(FromAccount("pos", true)), "admitted");
}

// --- how often
// -----------------------------------------------------------------------------------

namespace {

class RateAtTheGate : public TheGate {
  protected:
    RateAtTheGate() {
        Settings settings = Usual();
        settings.ofAddress = {10, 1};
        settings.ofToken = {5, 0.5};
        settings.ofFailures = {3, 0.1};
        gate_.Configure(settings);
    }
    int AdmittedAtOnce(const Request& request, gate::Time now = start) {
        int count = 0;
        while (count < 100 && Refused(request, now) == "admitted") ++count;
        return count;
    }
    static Request At(const std::string& address, Request request) {
        request.peer.address = address;
        return request;
    }
};

}  // namespace

TEST_F(RateAtTheGate, IsLimitedForAToken) {
    EXPECT_EQ(AdmittedAtOnce(With(till_)), 5);
    EXPECT_EQ(Refused(At("192.168.1.6", With(till_))), "429 too-many-requests");
    EXPECT_EQ(Refused(At("192.168.1.7", With(shop_))), "admitted");
}

TEST_F(RateAtTheGate, SaysWhenToComeAgain) {
    AdmittedAtOnce(With(till_));
    EXPECT_EQ(HeaderOf(Answer(With(till_)), "Retry-After"), "2");
    EXPECT_EQ(Refused(With(till_), start + 2s), "admitted");
}

TEST_F(RateAtTheGate, IsLimitedForAnAddressBeforeItsTokenIsLookedAt) {
    for (int i = 0; i < 10; ++i) EXPECT_EQ(Refused(Asking()), "401 no-token");
    EXPECT_EQ(Refused(Asking()), "429 too-many-requests");
    EXPECT_EQ(Refused(With(till_)), "429 too-many-requests");
    EXPECT_EQ(ProblemIn(*gate_.Refuse(Asking(), start)), "429 too-many-requests");
    EXPECT_EQ(ProblemIn(gate_.LogIn(LogInForm(till_), start)), "429 too-many-requests");
    EXPECT_EQ(Refused(At("192.168.1.6", With(till_))), "admitted");
}

TEST_F(RateAtTheGate, CountsTheAddressesOfAnIpv6NetworkAsOne) {
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(Refused(At("2001:db8:1:2::" + std::to_string(i), Asking())), "401 no-token");
    EXPECT_EQ(Refused(At("2001:db8:1:2:3:4:5:6", Asking())), "429 too-many-requests");
    EXPECT_EQ(Refused(At("2001:db8:1:3::1", Asking())), "401 no-token");
}

TEST_F(RateAtTheGate, CountsAnIpv4AddressAsOneHoweverItIsWritten) {
    for (int i = 0; i < 10; ++i) Refused(At("::ffff:10.0.0.1", Asking()));
    EXPECT_EQ(Refused(At("10.0.0.1", Asking())), "429 too-many-requests");
    EXPECT_EQ(Refused(At("::ffff:10.0.0.2", Asking())), "401 no-token");
}

TEST_F(RateAtTheGate, IsLowerForWrongTokens) {
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Refused(With("vt_x")), "401 bad-token");
    EXPECT_EQ(Refused(With("vt_x")), "429 too-many-requests");
    EXPECT_EQ(HeaderOf(Answer(With("vt_x")), "Retry-After"), "10");
    EXPECT_EQ(ProblemIn(gate_.LogIn(LogInForm("vt_x"), start)), "429 too-many-requests");
    EXPECT_EQ(Refused(With("vt_x"), start + 11s), "401 bad-token");
}

// A till with an old token that tries for ever must not stop the one beside it.
TEST_F(RateAtTheGate, LetsARightTokenThroughAfterManyWrongOnes) {
    for (int i = 0; i < 4; ++i) Refused(With("vt_x"));
    EXPECT_EQ(Refused(With(till_)), "admitted");
}

TEST_F(RateAtTheGate, IsNotLowerForWhoHasNoToken) {
    for (int i = 0; i < 9; ++i) EXPECT_EQ(Refused(Asking()), "401 no-token");
}

TEST_F(RateAtTheGate, IsOneForATokenAndItsSessions) {
    const std::string cookie = LogIn();
    EXPECT_EQ(AdmittedAtOnce(Browsing(cookie)), 4);
    EXPECT_EQ(Refused(At("192.168.1.6", With(till_))), "429 too-many-requests");
}

// --- sessions
// ------------------------------------------------------------------------------------

using SessionAtTheGate = TheGate;

TEST_F(SessionAtTheGate, IsBegunByAToken) {
    const Response welcome = gate_.LogIn(LogInForm(till_), start);
    EXPECT_EQ(welcome.status, 303);
    EXPECT_EQ(HeaderOf(welcome, "Location"), "/");
    EXPECT_EQ(HeaderOf(welcome, "Cache-Control"), "no-store");
    const std::string set = HeaderOf(welcome, "Set-Cookie");
    EXPECT_THAT(set, StartsWith("voltis="));
    EXPECT_THAT(set, EndsWith("; Path=/; HttpOnly; SameSite=Strict"));
    EXPECT_EQ(set.find(';'), std::string("voltis=").size() + 64);
    EXPECT_THAT(set, Not(HasSubstr(till_.substr(3))));
    EXPECT_EQ(Admitted(Browsing(set.substr(0, set.find(';')))).name, "Till 1");
}

TEST_F(SessionAtTheGate, IsForThisHostAndEncryptedLinesOnlyWhereThereIsTls) {
    Settings settings = Usual();
    settings.access.tls = true;
    gate_.Configure(settings);
    const std::string set = HeaderOf(gate_.LogIn(LogInForm(till_), start), "Set-Cookie");
    EXPECT_THAT(set, StartsWith("__Host-voltis="));
    EXPECT_THAT(set, EndsWith("; Path=/; Secure; HttpOnly; SameSite=Strict"));
    const std::string cookie = set.substr(0, set.find(';'));
    EXPECT_EQ(Refused(Browsing(cookie)), "admitted");
    EXPECT_EQ(Refused(Browsing(cookie.substr(std::string("__Host-").size()))), "401 no-token");
}

TEST_F(SessionAtTheGate, MayDoWhatItsTokenMay) {
    const Caller caller = Admitted(Browsing(CookieAfter(LogInForm(shop_))));
    EXPECT_THAT(caller.scopes, ElementsAre(Scope::Print));
    EXPECT_FALSE(caller.MayUse("bar"));
}

TEST_F(SessionAtTheGate, IsBegunByATokenWithBlanksAround) {
    EXPECT_NE(CookieAfter(LogInForm("+" + till_ + "%0d%0a")), "");
}

TEST_F(SessionAtTheGate, IsNotBegunByAnythingElse) {
    for (const std::string& token : {std::string(), till_ + "0", std::string("vt_x")}) {
        const Response refusal = gate_.LogIn(LogInForm(token), start);
        EXPECT_EQ(ProblemIn(refusal), "401 bad-token");
        EXPECT_EQ(HeaderOf(refusal, "Set-Cookie"), "");
    }
    Request request = LogInForm(till_);
    request.headers["content-type"] = "text/plain";  // which a form of any page can send
    EXPECT_EQ(ProblemIn(gate_.LogIn(request, start)), "415 no-form");
}

TEST_F(SessionAtTheGate, IsAnotherOneThanTheBrowserCameWith) {
    const std::string planted = "voltis=" + std::string(64, 'a');
    EXPECT_EQ(Refused(Browsing(planted)), "401 no-session");
    Request request = LogInForm(till_);
    request.headers["cookie"] = planted;
    const std::string cookie = CookieAfter(request);
    EXPECT_NE(cookie, planted);
    EXPECT_EQ(Refused(Browsing(planted)), "401 no-session");
    EXPECT_EQ(Refused(Browsing(cookie)), "admitted");
}

TEST_F(SessionAtTheGate, EndsTheOneBefore) {
    const std::string first = LogIn();
    Request request = LogInForm(shop_);
    request.headers["cookie"] = first;
    const std::string second = CookieAfter(request);
    EXPECT_EQ(Refused(Browsing(first)), "401 no-session");
    EXPECT_EQ(Admitted(Browsing(second)).name, "shop");
}

TEST_F(SessionAtTheGate, EndsWithItsToken) {
    const std::string cookie = LogIn();
    ASSERT_EQ(Refused(Browsing(cookie)), "admitted");
    tokens::Revoke(path_, "Till 1");
    const Response refusal = Answer(Browsing(cookie));
    EXPECT_EQ(ProblemIn(refusal), "401 no-session");
    EXPECT_THAT(HeaderOf(refusal, "Set-Cookie"), StartsWith("voltis=; "));
    EXPECT_THAT(HeaderOf(refusal, "Set-Cookie"), EndsWith("; Max-Age=0"));
}

TEST_F(SessionAtTheGate, EndsForGoodWithItsToken) {
    const std::string cookie = LogIn();
    const std::string text = ReadWholeFile(path_);
    tokens::Revoke(path_, "Till 1");
    EXPECT_EQ(Refused(Browsing(cookie)), "401 no-session");
    folder_.Write("tokens", text);
    ASSERT_EQ(Refused(With(till_)), "admitted");
    EXPECT_EQ(Refused(Browsing(cookie)), "401 no-session");
}

TEST_F(SessionAtTheGate, GoesOnWhenTheFileIsMended) {
    const std::string cookie = LogIn();
    const std::string text = ReadWholeFile(path_);
    folder_.Write("tokens", "soup\n");
    EXPECT_EQ(Refused(Browsing(cookie)), "503 tokens-unusable");
    EXPECT_FALSE(gate_.StillAdmits(Browsing(cookie), start));
    folder_.Write("tokens", text);
    EXPECT_EQ(Refused(Browsing(cookie)), "admitted");
}

TEST_F(SessionAtTheGate, IsNotThatOfANewTokenOfTheSameName) {
    const std::string cookie = LogIn();
    tokens::Revoke(path_, "Till 1");
    tokens::Add(path_, {"Till 1", {Scope::Read}});
    EXPECT_EQ(Refused(Browsing(cookie)), "401 no-session");
}

TEST_F(SessionAtTheGate, EndsAfterHalfAnHourWithoutARequest) {
    const std::string cookie = LogIn();
    EXPECT_EQ(Refused(Browsing(cookie), start + 29min), "admitted");
    EXPECT_EQ(Refused(Browsing(cookie), start + 58min), "admitted");
    EXPECT_EQ(Refused(Browsing(cookie), start + 88min), "401 no-session");
}

TEST_F(SessionAtTheGate, EndsAfterTwelveHours) {
    const std::string cookie = LogIn();
    for (auto now = start; now < start + 12h; now += 20min)
        ASSERT_EQ(Refused(Browsing(cookie), now), "admitted");
    EXPECT_EQ(Refused(Browsing(cookie), start + 12h), "401 no-session");
}

TEST_F(SessionAtTheGate, GoesOnWhenTheConfigurationIsReadAgain) {
    const std::string cookie = LogIn();
    gate_.Configure(Usual());
    EXPECT_EQ(Refused(Browsing(cookie)), "admitted");
}

TEST_F(SessionAtTheGate, DoesNotCountBesideAToken) {
    Request request = Browsing(LogIn());
    request.headers["authorization"] = "Bearer vt_x";
    EXPECT_EQ(Refused(request), "401 bad-token");
    request.headers["authorization"] = "Bearer " + shop_;
    EXPECT_EQ(Admitted(request).name, "shop");
}

// --- forged requests
// -----------------------------------------------------------------------------

using ForgeryAtTheGate = TheGate;

TEST_F(ForgeryAtTheGate, LacksTheCsrfToken) {
    const std::string cookie = LogIn();
    for (const char* method : {"POST", "DELETE", "PUT", "PATCH", "SOUP"})
        EXPECT_EQ(Refused(Browsing(cookie, method)), "403 no-csrf-token") << method;
    for (const char* method : {"GET", "HEAD"})
        EXPECT_EQ(Refused(Browsing(cookie, method)), "admitted") << method;
}

TEST_F(ForgeryAtTheGate, HasAWrongOne) {
    const std::string cookie = LogIn();
    const std::string right = gate_.CsrfOf(Browsing(cookie), start);
    ASSERT_EQ(right.size(), 64U);
    for (const std::string& wrong : {right + "0", right.substr(1), cookie, std::string(64, '0')}) {
        Request request = Browsing(cookie, "POST");
        request.headers["x-csrf-token"] = wrong;
        EXPECT_EQ(Refused(request), "403 no-csrf-token") << wrong;
    }
}

TEST_F(ForgeryAtTheGate, HasThatOfAnotherSession) {
    const std::string cookie = LogIn();
    Request request = Browsing(cookie, "POST");
    request.headers["x-csrf-token"] = gate_.CsrfOf(Browsing(LogIn()), start);
    EXPECT_EQ(Refused(request), "403 no-csrf-token");
}

TEST_F(ForgeryAtTheGate, IsNoneWithTheTokenInTheHeaderOrTheForm) {
    const std::string cookie = LogIn();
    EXPECT_EQ(Refused(Posting(cookie)), "admitted");
    Request form = Browsing(cookie, "POST");
    form.headers["content-type"] = "application/x-www-form-urlencoded";
    form.body = "verdict=printed&_csrf=" + gate_.CsrfOf(Browsing(cookie), start);
    EXPECT_EQ(Refused(form), "admitted");
    form.headers["content-type"] = "text/plain";
    EXPECT_EQ(Refused(form), "403 no-csrf-token");
}

TEST_F(ForgeryAtTheGate, KeepsNoSessionAlive) {
    const std::string cookie = LogIn();
    EXPECT_EQ(Refused(Browsing(cookie, "POST"), start + 29min), "403 no-csrf-token");
    EXPECT_EQ(Refused(Browsing(cookie), start + 31min), "401 no-session");
}

TEST_F(ForgeryAtTheGate, CannotLogOut) {
    const std::string cookie = LogIn();
    EXPECT_EQ(ProblemIn(gate_.LogOut(Browsing(cookie, "POST"), start)), "403 no-csrf-token");
    EXPECT_EQ(ProblemIn(gate_.LogOut(Browsing(cookie), start)), "403 no-csrf-token");
    EXPECT_EQ(Refused(Browsing(cookie)), "admitted");
}

TEST_F(TheGate, GivesNoCsrfTokenWithoutASession) {
    EXPECT_EQ(gate_.CsrfOf(Asking(), start), "");
    EXPECT_EQ(gate_.CsrfOf(With(till_), start), "");
    EXPECT_EQ(gate_.CsrfOf(Browsing("voltis=x"), start), "");
}

TEST_F(TheGate, LogsOut) {
    const std::string cookie = LogIn();
    const std::string other = LogIn();
    const Response farewell = gate_.LogOut(Posting(cookie), start);
    EXPECT_EQ(farewell.status, 303);
    EXPECT_EQ(HeaderOf(farewell, "Location"), "/login");
    EXPECT_THAT(HeaderOf(farewell, "Set-Cookie"), EndsWith("; Max-Age=0"));
    EXPECT_EQ(Refused(Browsing(cookie)), "401 no-session");
    EXPECT_EQ(Refused(Browsing(other)), "admitted");
    EXPECT_EQ(gate_.LogOut(Posting(cookie), start).status, 303);  // again
}

// --- answers that go on
// --------------------------------------------------------------------------

TEST_F(TheGate, StillAdmitsWhileTheTokenIsThere) {
    const Request request = With(till_);
    EXPECT_TRUE(gate_.StillAdmits(request, start));
    EXPECT_FALSE(gate_.StillAdmits(Asking(), start));
    EXPECT_TRUE(gate_.StillAdmits(FromAccount("pos", true), start));
    EXPECT_FALSE(gate_.StillAdmits(FromAccount("pos", false), start));
    tokens::Revoke(path_, "Till 1");
    EXPECT_FALSE(gate_.StillAdmits(request, start));
}

TEST_F(TheGate, StillAdmitsASessionButKeepsItNotAlive) {
    const Request request = Browsing(LogIn());
    EXPECT_TRUE(gate_.StillAdmits(request, start + 29min));
    EXPECT_FALSE(gate_.StillAdmits(request, start + 30min));
}

TEST_F(RateAtTheGate, IsNotCountedForAnAnswerThatGoesOn) {
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(gate_.StillAdmits(With(till_), start));
    EXPECT_EQ(AdmittedAtOnce(With(till_)), 5);
}
