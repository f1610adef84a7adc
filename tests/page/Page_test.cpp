// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// What holds for every page.
#include "companion/page/Page.h"

#include <sqlite3.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "companion/http/Problem.h"
#include "companion/page/Assets.h"
#include "tests/page/Looking.h"

namespace {

constexpr char hostile[] = R"("><script>alert(1)</script><img src=x onerror='alert(2)'>)";

class EveryPage : public Looking {
  protected:
    /// In each state, with every form that there is.
    std::vector<http::Response> All() {
        const std::string doubt = PathOf(Doubt("doubt"));
        const std::string queued = PathOf(HandIn("queued"));
        const std::string printed = PathOf(PrintWithLog("printed", "lost-answer.log"));
        std::vector<http::Response> all;
        for (const std::string& path : {std::string("/"), doubt, queued, printed,
                                        std::string("/jobs/999"), std::string("/login")})
            all.push_back(Get(path));
        all.push_back(Post(doubt + "/resolve", ""));
        all.push_back(PostAs(reader_, doubt + "/resolve", ""));
        return all;
    }
};

// --- hostile texts -------------------------------------------------------------------------------

TEST_F(EveryPage, HasNothingOfWhatOthersWroteAsMarkup) {
    const std::int64_t doubt = HandIn(hostile, "default", hostile);
    Start(doubt);
    Finish(doubt, Kind::Unknown, {101, hostile, 150, ""});
    const std::int64_t queued = HandIn(std::string("queued ") + hostile, "default", hostile);
    const std::int64_t resolved = Doubt(std::string("resolved ") + hostile);
    journal_.Resolve(resolved, journal::Decision::Printed, hostile, hostile);
    const http::Caller caller{hostile, boss_.scopes, {}};
    for (const std::string& path :
         {std::string("/"), PathOf(doubt), PathOf(queued), PathOf(resolved)}) {
        const std::string shown = GetAs(caller, path).body;
        EXPECT_THAT(shown, Not(HasSubstr("<script>"))) << path;
        EXPECT_THAT(shown, Not(HasSubstr("<img src=x"))) << path;
        EXPECT_THAT(shown, Not(HasSubstr("onerror='"))) << path;
        EXPECT_THAT(shown, HasSubstr("&quot;&gt;&lt;script&gt;")) << path;
    }
}

TEST_F(EveryPage, KeepsTextsOfOthersFromTurningWhatIsAroundThem) {
    HandIn(
        "\xE2\x80\xAE"
        "desrever");
    EXPECT_THAT(Get("/").body, HasSubstr("<bdi>\xE2\x80\xAE"
                                         "desrever</bdi>"));
}

// --- strictness ----------------------------------------------------------------------------------

TEST_F(EveryPage, TellsTheBrowserToTakeNothingFromElsewhere) {
    for (const http::Response& response : All()) {
        EXPECT_EQ(HeaderOf(response, "Content-Security-Policy"),
                  "default-src 'none'; img-src 'self'; style-src 'self'; script-src 'self'; "
                  "connect-src 'self'; form-action 'self'; frame-ancestors 'none'; "
                  "base-uri 'none'");
        EXPECT_EQ(HeaderOf(response, "Referrer-Policy"), "same-origin");
        EXPECT_EQ(HeaderOf(response, "X-Content-Type-Options"), "nosniff");
        EXPECT_EQ(HeaderOf(response, "Cache-Control"), "no-store");
    }
}

TEST_F(EveryPage, HasNoStyleAndNoScriptOfItsOwn) {
    for (const http::Response& response : All()) {
        EXPECT_THAT(response.body, Not(HasSubstr("<style")));
        EXPECT_THAT(response.body, Not(ContainsRegex("<[^>]* style=")));
        EXPECT_THAT(response.body, Not(ContainsRegex("<[^>]* on[a-z]+=")));
        EXPECT_THAT(response.body, Not(HasSubstr("javascript:")));
        EXPECT_EQ(AllIn(response.body, "<script[^>]*>"),
                  std::vector<std::string>{"<script src=\"/page.js\" defer>"});
        EXPECT_THAT(response.body, HasSubstr("defer></script>"));
    }
}

TEST_F(EveryPage, NamesNothingOfAnotherHost) {
    for (const http::Response& response : All())
        for (const std::string& name : AllIn(response.body, "(src|href|action)=\"[^\"]*\""))
            EXPECT_THAT(name, ContainsRegex("=\"(/($|[^/])|#)")) << name;
}

TEST_F(EveryPage, HasTheTokenOfTheSessionInEachForm) {
    int forms = 0;
    for (const http::Response& response : All()) {
        for (const std::string& form : AllIn(response.body, "<form[^]*?</form>")) {
            if (form.find("action=\"/login\"") != std::string::npos) continue;  // no session yet
            EXPECT_THAT(form, HasSubstr("method=\"post\""));
            EXPECT_THAT(form, HasSubstr("name=\"_csrf\" value=\"secret-of-this-session\""));
            ++forms;
        }
    }
    EXPECT_GE(forms, 9) << "there are some to look at";
}

TEST_F(EveryPage, LetsOnlyWhoHasASessionLogOut) {
    EXPECT_THAT(Get("/").body, HasSubstr("action=\"/logout\""));
    csrf_ = "";
    EXPECT_THAT(Get("/").body, Not(HasSubstr("action=\"/logout\"")));
}

// --- for everybody -------------------------------------------------------------------------------

TEST_F(EveryPage, CanBeReadByAScreenReader) {
    for (const http::Response& response : All()) {
        const std::string& body = response.body;
        EXPECT_THAT(body, HasSubstr("<html lang=\"en\">"));
        EXPECT_THAT(body, ContainsRegex("<title>[^<]+</title>"));
        EXPECT_THAT(body, HasSubstr("<a class=\"skip\" href=\"#main\">"));
        EXPECT_EQ(AllIn(body, "<main ").size(), 1);
        EXPECT_EQ(AllIn(body, "<h1[ >]").size(), 1);
        EXPECT_THAT(body, HasSubstr("aria-live=\"polite\""));
    }
}

TEST_F(EveryPage, HasALabelForEachFieldAndEveryIdOnce) {
    Doubt("another");
    for (const http::Response& response : All()) {
        const std::string& body = response.body;
        for (const std::string& input :
             AllIn(body, "<input type=\"(text|radio|password)\"[^>]*>")) {
            const std::string id = AllIn(input, " id=\"[^\"]*\"").at(0).substr(4);
            EXPECT_THAT(body, HasSubstr(" for=" + id)) << input;
        }
        std::vector<std::string> ids = AllIn(body, " id=\"[^\"]*\"");
        std::ranges::sort(ids);
        EXPECT_EQ(std::ranges::adjacent_find(ids), ids.end());
    }
}

// --- files, paths, methods -----------------------------------------------------------------------

TEST_F(EveryPage, HasItsStyleAndScriptInFiles) {
    for (const auto& [path, type] :
         std::map<std::string, std::string>{{"/page.css", "text/css; charset=utf-8"},
                                            {"/page.js", "text/javascript; charset=utf-8"},
                                            {"/page.svg", "image/svg+xml"}}) {
        const auto response = page::Page::AnswerAnyone(RequestFor("GET", path));
        ASSERT_TRUE(response) << path;
        EXPECT_EQ(response->type, type);
        EXPECT_EQ(response->body, ReadWholeFile(PAGE_DIR + path));
    }
}

TEST_F(EveryPage, SendsAFileThatTheBrowserHasNoSecondTime) {
    http::Request request = RequestFor("GET", "/page.css");
    request.headers["if-none-match"] = HeaderOf(*page::Page::AnswerAnyone(request), "ETag");
    const auto again = page::Page::AnswerAnyone(request);
    EXPECT_EQ(again->status, 304);
    EXPECT_THAT(again->body, IsEmpty());
}

TEST_F(EveryPage, IsForNobodyWhoIsNotLetInButForTheLogin) {
    EXPECT_TRUE(page::Page::AnswerAnyone(RequestFor("GET", "/login")));
    EXPECT_FALSE(page::Page::AnswerAnyone(RequestFor("GET", "/")));
    EXPECT_FALSE(page::Page::AnswerAnyone(RequestFor("GET", "/jobs/1")));
    EXPECT_FALSE(page::Page::AnswerAnyone(RequestFor("POST", "/login"))) << "that is the gate's";
}

TEST_F(EveryPage, LeavesOtherPathsToOthers) {
    for (const char* path : {"/v1/jobs", "/metrics", "/healthz", "/page.html"})
        EXPECT_FALSE(page_.Answer(RequestFor("GET", path), boss_, csrf_)) << path;
}

TEST_F(EveryPage, TakesNoMethodThatItDoesNotHave) {
    const http::Response response = AskAs(boss_, RequestFor("POST", "/"));
    EXPECT_EQ(response.status, 405);
    EXPECT_EQ(HeaderOf(response, "Allow"), "GET, HEAD");
    EXPECT_EQ(AskAs(boss_, RequestFor("HEAD", "/")).status, 200);
}

TEST_F(EveryPage, SaysWhenTheJournalCannotBeUsed) {
    sqlite3* handle = nullptr;
    ASSERT_EQ(sqlite3_open(folder_.File("journal.db").c_str(), &handle), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(handle, "DROP TABLE jobs", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(handle);
    const http::Response response = Get("/");
    EXPECT_EQ(response.status, 503);
    EXPECT_EQ(HeaderOf(response, "Retry-After"), "5");
    EXPECT_THAT(response.body, Not(HasSubstr("jobs"))) << "its reason is for the log";
}

// --- refusals ------------------------------------------------------------------------------------

class Refusal : public Looking {
  protected:
    static http::Request Of(const std::string& method, const std::string& path,
                            const std::string& accept = "text/html,*/*;q=0.8") {
        http::Request request = RequestFor(method, path);
        request.headers["accept"] = accept;
        return request;
    }
    static http::Response NoSession() {
        http::Response refusal = http::ProblemOf(401, "no-session", "The session has ended");
        refusal.headers.emplace_back("Set-Cookie", "voltis=; Max-Age=0");
        return refusal;
    }
};

TEST_F(Refusal, LeadsAPersonToTheLogin) {
    const http::Response response = page::Page::ForPerson(Of("GET", "/jobs/1"), NoSession());
    EXPECT_EQ(response.status, 303);
    EXPECT_EQ(HeaderOf(response, "Location"), "/login");
    EXPECT_EQ(HeaderOf(response, "Set-Cookie"), "voltis=; Max-Age=0");
}

TEST_F(Refusal, StaysAsItIsForAProgram) {
    EXPECT_EQ(page::Page::ForPerson(Of("GET", "/", "*/*"), NoSession()).type,
              "application/problem+json");
    EXPECT_EQ(page::Page::ForPerson(Of("GET", "/v1/jobs"), NoSession()).type,
              "application/problem+json");
}

TEST_F(Refusal, OfATokenIsShownAtTheForm) {
    const http::Response response = page::Page::ForPerson(
        Of("POST", "/login"), http::ProblemOf(401, "bad-token", "The token is unknown"));
    EXPECT_EQ(response.status, 401);
    EXPECT_THAT(response.body, HasSubstr("role=\"alert\">The token is unknown"));
    EXPECT_THAT(response.body, HasSubstr("name=\"token\" required"));
}

TEST_F(Refusal, OfAFormSaysWhy) {
    const http::Response response = page::Page::ForPerson(
        Of("POST", "/jobs/1/resolve"), http::ProblemOf(403, "no-csrf-token", "Load <it> again"));
    EXPECT_EQ(response.status, 403);
    EXPECT_THAT(response.body, HasSubstr("<p>Load &lt;it&gt; again.</p>"));
}

TEST_F(Refusal, OfTheNameOfTheHostShowsNoFormForTokens) {
    const http::Response response = page::Page::ForPerson(
        Of("GET", "/login"),
        http::ProblemOf(421, "foreign-host", "That is no name of this service"));
    EXPECT_EQ(response.status, 421);
    EXPECT_THAT(response.body, HasSubstr("<p>That is no name of this service.</p>"));
    EXPECT_THAT(response.body, Not(HasSubstr("name=\"token\"")));
}

TEST_F(Refusal, LeavesWhatIsNoneAlone) {
    EXPECT_EQ(page::Page::ForPerson(Of("POST", "/login"), {303, "", "", {}}).status, 303);
}

TEST_F(Refusal, OfThePageItselfStaysAsItIs) {
    const http::Response own{422, "text/html; charset=utf-8", "<p>The note is missing.</p>", {}};
    const http::Response response = page::Page::ForPerson(Of("POST", "/jobs/1/resolve"), own);
    EXPECT_EQ(response.status, 422);
    EXPECT_EQ(response.body, own.body);
}

}  // namespace
