// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// Registers, checks, pictures, events, counts, the description, and what holds for all requests.
#include <sqlite3.h>

#include <chrono>
#include <memory>
#include <set>

#include "companion/api/Routes.h"
#include "companion/gate/Gate.h"
#include "companion/tokens/Book.h"
#include "tests/api/Asking.h"

using verdict::Kind;

namespace {

class Services : public Asking {
  protected:
    json Check(const std::string& content, const std::string& query = "",
               const std::string& type = "text/plain") {
        const http::Response response =
            Ask("POST", "/v1/registers/default/check" + query, {{"content-type", type}}, content);
        EXPECT_EQ(response.status, 200) << response.body;
        return json::parse(response.body);
    }
    http::Stream Listen(const std::string& target, const Headers& headers = {}) {
        return Listen(RequestFor("GET", target, headers), boss_);
    }
    http::Stream Listen(const http::Request& request, const http::Caller& caller) {
        http::Reply reply = api_.Answer(request, caller);
        if (auto* stream = std::get_if<http::Stream>(&reply)) return *stream;
        ADD_FAILURE() << "no stream";
        return {"", {}, [] { return std::string(); }, "", {}};
    }
    std::string Next(const http::Stream& stream) {
        const std::string text = stream.next();
        EXPECT_THAT(MistakesOfEvents(text, Description()), IsEmpty());
        return text;
    }
    std::string Metrics() { return Get("/metrics").body; }
    // By another program; nobody waits for it.
    void Lock() {
        journal_.SetPatience(std::chrono::milliseconds(0));
        other_ = std::make_unique<journal::Database>(folder_.File("journal.db"), nullptr);
        writing_ = std::make_unique<journal::Transaction>(*other_);
    }
    void Unlock() {
        writing_.reset();
        other_.reset();
    }
    void BreakJournal() {
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open(folder_.File("journal.db").c_str(), &database), SQLITE_OK);
        for (const char* table : {"jobs", "events", "counts"})
            sqlite3_exec(database, (std::string("DROP TABLE ") + table).c_str(), nullptr, nullptr,
                         nullptr);
        sqlite3_close(database);
    }

  private:
    std::unique_ptr<journal::Database> other_;
    std::unique_ptr<journal::Transaction> writing_;
};

using Routing = Services;
using Accepting = Services;
using Registers = Services;
using CheckFiles = Services;
using Receipts = Services;
using Events = Services;
using BusyJournal = Services;
using ServiceMetrics = Services;
using Health = Services;
using OpenApiDescription = Services;

std::size_t CountOf(const std::string& text, const std::string& what) {
    std::size_t count = 0;
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        ++count;
    return count;
}

}  // namespace

// --- every request -------------------------------------------------------------------------------

TEST_F(Routing, KnowsNoOtherPaths) {
    for (const char* path :
         {"/", "/v1", "/v1/", "/v1/job", "/v1/jobs/a/b", "/v1/jobs/a/receipt", "/v2/jobs",
          "/v1/registers/", "/v1/registers/default/jobs/a", "/healthz/", "/V1/jobs"})
        EXPECT_EQ(ProblemIn(Get(path)), "404 not-found") << path;
}

TEST_F(Routing, TellsTheMethodsThatThereAre) {
    const auto allowed = [&](const char* method, const char* path) {
        const http::Response response = Ask(method, path);
        EXPECT_EQ(ProblemIn(response), "405 not-allowed");
        return HeaderOf(response, "Allow");
    };
    EXPECT_EQ(allowed("PUT", "/v1/jobs/a"), "GET, HEAD, DELETE");
    EXPECT_EQ(allowed("GET", "/v1/jobs/a/resolve"), "POST");
    EXPECT_EQ(allowed("HEAD", "/v1/registers/default/jobs"), "POST");
    EXPECT_EQ(allowed("POST", "/v1/jobs"), "GET, HEAD");
    EXPECT_EQ(allowed("get", "/v1/jobs"), "GET, HEAD");
    EXPECT_EQ(allowed("", "/healthz"), "GET, HEAD");
}

TEST_F(Routing, AnswersToHeadAsToGet) {
    Print("a");
    for (const char* path : {"/v1/jobs", "/v1/jobs/a", "/v1/jobs/a/receipt.svg", "/v1/registers",
                             "/v1/registers/bar", "/openapi.json", "/metrics", "/healthz"}) {
        const http::Response head = Ask("HEAD", path);
        EXPECT_EQ(head.status, 200) << path;
        EXPECT_EQ(head.body, Get(path).body) << path;
    }
}

TEST_F(Routing, IsOpenForNobodyButTheHealth) {
    for (const api::Route& route : api::Routes()) {
        const std::string path = route.path;
        const std::string concrete =
            path.find("{number}") != std::string::npos ? "/v1/jobs/by-number/1" : path;
        EXPECT_EQ(api::Api::IsOpen(RequestFor(route.method, concrete)), path == "/healthz") << path;
    }
    EXPECT_TRUE(api::Api::IsOpen(RequestFor("HEAD", "/healthz")));
    EXPECT_FALSE(api::Api::IsOpen(RequestFor("POST", "/healthz")));
    EXPECT_FALSE(api::Api::IsOpen(RequestFor("GET", "/nowhere")));
}

TEST_F(Routing, GivesNothingToACallerWithoutScopes) {
    const http::Caller nobody{"nobody", {}, {}};
    for (const api::Route& route : api::Routes()) {
        if (route.right == api::Right::None) continue;
        std::string path = route.path;
        const std::size_t place = path.find("{number}");
        if (place != std::string::npos) path.replace(place, 8, "1");
        EXPECT_EQ(ProblemIn(Ask(RequestFor(route.method, path), nobody)), "403 scope") << path;
    }
}

TEST_F(Accepting, RefusesToAnswerWithWhatIsNotWanted) {
    const auto status = [&](const char* path, const char* accept) {
        return Get(path, {{"accept", accept}}).status;
    };
    Print("a");
    for (const char* accept : {"", "*/*", "application/json", "text/html, application/*;q=0.1",
                               "Application/JSON; charset=utf-8", "text/*;q=0, */*"})
        EXPECT_EQ(status("/v1/jobs", accept), 200) << accept;
    for (const char* accept : {"text/html", "image/*", "application/json;q=0",
                               "*/*, application/json;q=0.0", "*/*;q=0", "application/jsonx"})
        EXPECT_EQ(status("/v1/jobs", accept), 406) << accept;
    EXPECT_EQ(status("/v1/jobs/a", "text/html"), 406);
    EXPECT_EQ(status("/v1/jobs/a/receipt.svg", "image/avif,image/svg+xml,*/*;q=0"), 200);
    EXPECT_EQ(status("/metrics",
                     "application/openmetrics-text;version=1.0.0;q=0.5,"
                     "text/plain;version=0.0.4;q=0.3"),
              200);
}

TEST_F(Accepting, HandsInNothingWhoseAnswerIsNotWanted) {
    http::Request request = HandingIn("a");
    request.headers["accept"] = "text/html";
    EXPECT_EQ(ProblemIn(Ask(request, boss_)), "406 not-acceptable");
    EXPECT_FALSE(journal_.Find("a"));
}

// --- registers -----------------------------------------------------------------------------------

TEST_F(Registers, AreThoseThatAreServed) {
    const json all = GetJson("/v1/registers")["registers"];
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[1]["name"], "bar");
    EXPECT_EQ(all[1]["up"], nullptr);
    EXPECT_EQ(all[1]["last"], nullptr);
    EXPECT_EQ(ProblemIn(Get("/v1/registers/kiosk")), "404 not-found");
}

TEST_F(Registers, HaveTheirQueueAndTheirDoubts) {
    Doubt("d");
    HandIn("a");
    HandIn("b");
    Start("a");
    const json shown = GetJson("/v1/registers/default");
    EXPECT_EQ(shown["queue"]["length"], 1);
    EXPECT_EQ(shown["queue"]["sending"], NumberOf("a"));
    EXPECT_EQ(shown["in_doubt"], 1);
    EXPECT_EQ(GetJson("/v1/registers/bar")["in_doubt"], 0);
}

TEST_F(Registers, TellHowTheLastJobEnded) {
    Print("a");
    json shown = GetJson("/v1/registers/default");
    EXPECT_EQ(shown["up"], true);
    EXPECT_EQ(shown["last"]["url"], "/v1/jobs/a");
    HandIn("b");
    End("b", Kind::NotPrinted, {2, "ECR is missing or in OFF state", 100, ""});
    shown = GetJson("/v1/registers/default");
    EXPECT_EQ(shown["up"], false);
    EXPECT_EQ(shown["last"]["result"], "not-printed");
    EXPECT_EQ(shown["last"]["error_code"], 100);
    HandIn("c");
    End("c", Kind::NotPrinted, {2, "Receipt paper end", 201, ""});
    EXPECT_EQ(GetJson("/v1/registers/default")["up"], true) << "it has answered";
    HandIn("d");
    End("d", Kind::NotPrinted, {1, "a mistake", 1, ""});
    EXPECT_EQ(GetJson("/v1/registers/default")["up"], nullptr) << "it was not asked";
}

TEST_F(Registers, TellWhetherTheyAreServed) {
    EXPECT_EQ(GetJson("/v1/registers/bar")["served"], true);
    settings_.isServed = [](const std::string& name) { return name == "default"; };
    EXPECT_EQ(GetJson("/v1/registers/bar")["served"], false);
    EXPECT_EQ(GetJson("/v1/registers/default")["served"], true);
}

TEST_F(Registers, TellWhatTheLogOfTheLastJobHas) {
    HandIn("a");
    const std::string run = folder_.File("run");
    std::filesystem::create_directories(run + "/logs");
    std::ofstream(run + "/logs/dbgerror.log") << ReadWholeFile(LOGS_DIR "/lost-answer.log");
    journal_.StartSending(NumberOf("a"), "default", run);
    Finish("a", Kind::Printed, {});
    const json status = GetJson("/v1/registers/default")["status"];
    EXPECT_EQ(status["model"], "ocelot");
    EXPECT_EQ(status["key"], "REG");
    EXPECT_EQ(status["paper"], "ok");
    EXPECT_EQ(status["receipt"]["open"], false);
}

TEST_F(Registers, AreShownToThoseWhoMayUseThem) {
    EXPECT_EQ(GetBy(till_, "/v1/registers/bar").status, 200);
    EXPECT_EQ(ProblemIn(GetBy(decider_, "/v1/registers/bar")), "403 scope");
    EXPECT_EQ(ProblemIn(GetBy(ofBar_, "/v1/registers/default")), "403 foreign-register");
    const json own = json::parse(GetBy(ofBar_, "/v1/registers").body)["registers"];
    ASSERT_EQ(own.size(), 1U);
    EXPECT_EQ(own[0]["name"], "bar");
}

// --- checks --------------------------------------------------------------------------------------

TEST_F(CheckFiles, TellAllMistakesWithTheirPlaces) {
    const json checked = Check("SALE: DEPTNR=1; AMOUNT=x\nNONE\nTENDER\n");
    EXPECT_EQ(checked["errors"], 2);
    ASSERT_EQ(checked["findings"].size(), 2U);
    EXPECT_EQ(checked["findings"][0]["line"], 1);
    EXPECT_EQ(checked["findings"][0]["column"], 24);
    EXPECT_EQ(checked["findings"][0]["severity"], "error");
    EXPECT_EQ(checked["findings"][1]["line"], 2);
}

TEST_F(CheckFiles, FindNothingInAGoodOne) {
    const json checked = Check(tart);
    EXPECT_EQ(checked["errors"], 0);
    EXPECT_THAT(checked["findings"], IsEmpty());
    EXPECT_EQ(journal_.LastEvent(), 0) << "it is handed in nowhere";
}

TEST_F(CheckFiles, CountColumnsInTheLettersOfTheRegister) {
    const json checked =
        Check("SALE: NAME=\"šš\"; DEPTNR=1; AMOUNT=x\n", "", "text/plain; charset=utf-8");
    EXPECT_EQ(checked["findings"][0]["column"], 35);
}

TEST_F(CheckFiles, MayBeForOneModel) {
    const std::string wide = "COMMENT: TEXT=\"123456789012345678901234567890\"\n";
    EXPECT_NE(Check(wide)["errors"], 0);
    EXPECT_EQ(Check(wide, "?model=ocelot")["errors"], 0);
    EXPECT_EQ(ProblemIn(Ask("POST", "/v1/registers/default/check?model=tiger",
                            {{"content-type", "text/plain"}}, wide)),
              "400 bad-request");
}

TEST_F(CheckFiles, EndWithSoManyMistakes) {
    std::string many;
    for (int i = 0; i < 1000; ++i) many += "NONE\n";
    EXPECT_EQ(Check(many)["complete"], true);
    const json checked = Check(many + "NONE\n");
    EXPECT_EQ(checked["complete"], false);
    EXPECT_EQ(checked["errors"], 1000);
    EXPECT_EQ(checked["findings"].size(), 1000U);
    EXPECT_EQ(Check(tart)["complete"], true) << "the next one is not the worse for it";
}

TEST_F(CheckFiles, AreForARegisterThatThereIs) {
    const Headers plain = {{"content-type", "text/plain"}};
    EXPECT_EQ(ProblemIn(Ask("POST", "/v1/registers/kiosk/check", plain, tart)), "404 not-found");
    EXPECT_EQ(
        ProblemIn(Ask(RequestFor("POST", "/v1/registers/default/check", plain, tart), ofBar_)),
        "403 foreign-register");
    EXPECT_EQ(ProblemIn(Ask("POST", "/v1/registers/default/check", {}, tart)), "415 wrong-type");
}

// --- pictures ------------------------------------------------------------------------------------

TEST_F(Receipts, ShowWhatTheFilePrints) {
    Print("a");
    const http::Response response = Get("/v1/jobs/a/receipt.svg");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.type, "image/svg+xml");
    EXPECT_THAT(response.body, HasSubstr(">Apple tart"));
    EXPECT_THAT(response.body, HasSubstr("2.50</text>"));
    EXPECT_THAT(response.body, HasSubstr("17</text>")) << "the number of the receipt";
    EXPECT_THAT(HeaderOf(response, "Content-Security-Policy"), HasSubstr("default-src 'none'"));
    EXPECT_EQ(Get("/v1/jobs/by-number/1/receipt.svg").body, response.body);
}

TEST_F(Receipts, AreMarkedAsASimulation) {
    Print("a");
    const std::string picture = Get("/v1/jobs/a/receipt.svg").body;
    EXPECT_THAT(picture, HasSubstr("<title>SIMULATION NOT A FISCAL RECEIPT</title>"));
    EXPECT_THAT(picture, HasSubstr("fill=\"white\">SIMULATION</text>"));
    EXPECT_THAT(picture, Not(HasSubstr("NOT DRAWN")));
}

TEST_F(Receipts, TellWhichLinesTheEmulatedRegisterRefuses) {
    HandIn("a", "SALE: DEPTNR=1; AMOUNT=2.50\nNONE\nREPORT: TYPE=Z\nTENDER\n");
    const std::string picture = Get("/v1/jobs/a/receipt.svg").body;
    EXPECT_THAT(picture, HasSubstr("NOT DRAWN: line 2 line 3</title>"));
    EXPECT_THAT(picture, HasSubstr("2.50"));
    std::string many;
    for (int i = 0; i < 15; ++i) many += "NONE\n";
    HandIn("b", many);
    EXPECT_THAT(Get("/v1/jobs/b/receipt.svg").body, HasSubstr("line 10 5 more</title>"));
}

TEST_F(Receipts, ShowArticlesThatOnlyTheRealRegisterKnows) {
    HandIn("a", "SALE: PLUNR=4750000000999; QNTY=2; PRICE=1.50\nTENDER\n");
    const std::string picture = Get("/v1/jobs/a/receipt.svg").body;
    EXPECT_THAT(picture, HasSubstr("PLU 4750000000999"));
    EXPECT_THAT(picture, HasSubstr("3.00"));
}

TEST_F(Receipts, ShowLettersOfTheCodePage) {
    settings_.profiles[0].codePage = "DOS";
    HandIn("a", "COMMENT: TEXT=\"\xC6\"\n");
    EXPECT_THAT(Get("/v1/jobs/a/receipt.svg").body, HasSubstr(">ā</text>"));
}

TEST_F(Receipts, AreAsWideAsTheRegistersPaper) {
    HandIn("a");
    EXPECT_THAT(Get("/v1/jobs/a/receipt.svg").body, HasSubstr("viewBox=\"0 0 480 "));
    settings_.profiles[0].protocolFormatting = 1;
    EXPECT_THAT(Get("/v1/jobs/a/receipt.svg").body, HasSubstr("viewBox=\"0 0 288 "));
    settings_.profiles.erase(settings_.profiles.begin());
    EXPECT_THAT(Get("/v1/jobs/a/receipt.svg").body, HasSubstr("viewBox=\"0 0 480 "))
        << "a register that is not served any more";
}

TEST_F(Receipts, SpareTheBodyOfWhatIsKnown) {
    HandIn("a");
    const std::string tag = HeaderOf(Get("/v1/jobs/a/receipt.svg"), "ETag");
    EXPECT_EQ(Get("/v1/jobs/a/receipt.svg", {{"if-none-match", tag}}).status, 304);
    End("a", Kind::Printed);
    EXPECT_EQ(Get("/v1/jobs/a/receipt.svg", {{"if-none-match", tag}}).status, 200);
}

TEST_F(Receipts, AreForThoseWhoMayKnowOfTheJob) {
    HandIn("a");
    EXPECT_EQ(ProblemIn(GetBy(till_, "/v1/jobs/a/receipt.svg")), "404 not-found");
    EXPECT_EQ(GetBy(reader_, "/v1/jobs/a/receipt.svg").status, 200);
    EXPECT_EQ(ProblemIn(Get("/v1/jobs/none/receipt.svg")), "404 not-found");
}

// --- events --------------------------------------------------------------------------------------

TEST_F(Events, TellWhatHappensFromNowOn) {
    HandIn("a");
    const http::Stream stream = Listen("/v1/events");
    EXPECT_EQ(stream.type, "text/event-stream");
    EXPECT_EQ(Next(stream), "retry: 2000\nid: 1\n\n") << "where it would resume";
    EXPECT_EQ(Next(stream), "");
    Start("a");
    const std::string text = Next(stream);
    EXPECT_THAT(text, testing::StartsWith("id: 2\nevent: job\ndata: {\"number\":2,\"job\":1,"
                                          "\"id\":\"a\",\"url\":\"/v1/jobs/a\","));
    EXPECT_THAT(text, HasSubstr("\"state\":\"sending\""));
    EXPECT_THAT(text, testing::EndsWith("}\n\n"));
    EXPECT_EQ(Next(stream), "");
}

TEST_F(Events, ResumeAfterTheLastOneThatWasSeen) {
    Print("a");
    const http::Stream stream = Listen("/v1/events?after=0", {{"last-event-id", "1"}});
    EXPECT_EQ(Next(stream), "retry: 2000\nid: 1\n\n") << "the header counts";
    const std::string text = Next(stream);
    EXPECT_EQ(CountOf(text, "event: job"), 2U);
    EXPECT_TRUE(text.starts_with("id: 2\n"));
}

TEST_F(Events, ResumeAlsoByTheQuery) {
    Print("a");
    const http::Stream stream = Listen("/v1/events?after=0");
    const std::string text = Next(stream) + Next(stream);
    EXPECT_EQ(CountOf(text, "event: job"), 3U);
    EXPECT_THAT(text, HasSubstr("\"verdict\":\"printed\""));
}

TEST_F(Events, GoOnWithoutAGapWhenThereAreMany) {
    for (int i = 0; i < 500; ++i) RunByItself();
    const http::Stream stream = Listen("/v1/events?after=0");
    std::string text;
    for (std::string part = Next(stream); !part.empty(); part = Next(stream)) {
        EXPECT_LE(CountOf(part, "event: job"), 200U);
        text += part;
    }
    EXPECT_EQ(CountOf(text, "event: job"), 500U);
    EXPECT_THAT(text, HasSubstr("\nid: 500\n"));
}

TEST_F(Events, MayBeOfOneRegister) {
    HandIn("a");
    HandIn("b", tart, "bar");
    const http::Stream asked = Listen("/v1/events?after=0&register=bar");
    const http::Stream bound = Listen(RequestFor("GET", "/v1/events?after=0"), ofBar_);
    for (const http::Stream& stream : {asked, bound}) {
        const std::string text = Next(stream) + Next(stream);
        EXPECT_EQ(CountOf(text, "event: job"), 1U);
        EXPECT_THAT(text, HasSubstr("\"register\":\"bar\""));
    }
    EXPECT_EQ(ProblemIn(GetBy(ofBar_, "/v1/events?register=default")), "403 foreign-register");
}

TEST_F(Events, AreOfARegisterThatThereIs) {
    EXPECT_EQ(ProblemIn(Get("/v1/events?register=other")), "404 not-found");
    EXPECT_EQ(ProblemIn(Get("/v1/events?after=0&register=Bar")), "404 not-found");
    EXPECT_EQ(ProblemIn(GetBy(ofBar_, "/v1/events?register=other")), "403 foreign-register");
}

TEST_F(Events, OfOthersDoNotHideWhatComesAfterThem) {
    for (int i = 0; i < 500; ++i) RunByItself();
    HandIn("b", tart, "bar");
    const http::Stream stream = Listen("/v1/events?after=0&register=bar");
    Next(stream);
    EXPECT_EQ(CountOf(Next(stream), "event: job"), 1U);
}

TEST_F(Events, GoOnFromTheLastOneWhenTheJournalIsAnother) {
    HandIn("a");
    const http::Stream stream = Listen("/v1/events", {{"last-event-id", "999"}});
    EXPECT_THAT(Next(stream), HasSubstr("id: 1\n"));
}

TEST_F(Events, RefuseWhatIsNoNumber) {
    for (const char* id : {"x", "-1", "1.5", "99999999999999999999"}) {
        EXPECT_EQ(ProblemIn(Get("/v1/events", {{"last-event-id", id}})), "400 bad-request") << id;
        EXPECT_EQ(ProblemIn(Get(std::string("/v1/events?after=") + id)), "400 bad-request") << id;
    }
}

TEST_F(Events, AreForReaders) {
    EXPECT_EQ(ProblemIn(GetBy(till_, "/v1/events")), "403 scope");
    EXPECT_EQ(Ask("HEAD", "/v1/events").type, "text/event-stream");
}

TEST_F(Events, WaitForAJournalThatCannotBeRead) {
    const http::Stream stream = Listen("/v1/events");
    Next(stream);
    BreakJournal();
    EXPECT_EQ(Next(stream), "");
}

// --- a journal that another program writes to ----------------------------------------------------

TEST_F(BusyJournal, IsToldToWhoWantsToChangeSomethingAndChangesNothing) {
    HandIn("waiting");
    Doubt("doubt");
    const http::Request resolving =
        RequestFor("POST", "/v1/jobs/doubt/resolve", {{"content-type", "application/json"}},
                   R"({"decision":"printed","note":"seen"})");
    const std::vector<http::Request> requests = {
        HandingIn("a"), RequestFor("DELETE", "/v1/jobs/waiting"), resolving};
    const std::int64_t before = journal_.LastEvent();
    Lock();
    for (const http::Request& request : requests) {
        const http::Response response = Ask(request, boss_);
        EXPECT_EQ(ProblemIn(response), "503 journal") << response.body;
        EXPECT_EQ(HeaderOf(response, "Retry-After"), "1");
        EXPECT_THAT(response.body, HasSubstr("keeps the journal locked"));
    }
    EXPECT_EQ(Get("/v1/jobs/waiting").status, 200);
    EXPECT_EQ(Get("/v1/jobs").status, 200);
    EXPECT_EQ(journal_.LastEvent(), before);
    Unlock();
    EXPECT_EQ(Ask(requests[0], boss_).status, 202);
    EXPECT_EQ(Ask(requests[1], boss_).status, 200);
    EXPECT_EQ(Ask(requests[2], boss_).status, 200);
}

// --- counts --------------------------------------------------------------------------------------

TEST_F(ServiceMetrics, AreInTheTextFormat) {
    const http::Response response = Get("/metrics");
    EXPECT_EQ(response.type, "text/plain; version=0.0.4; charset=utf-8");
    EXPECT_THAT(response.body, HasSubstr("# TYPE voltis_jobs_total counter\n"));
    EXPECT_THAT(response.body, HasSubstr("voltis_build_info{version=\"1.2.3\"} 1\n"));
    EXPECT_TRUE(response.body.ends_with('\n'));
    std::istringstream lines(response.body);
    std::string family;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("# HELP ")) family = line.substr(7, line.find(' ', 7) - 7);
        if (line.starts_with("# ")) continue;
        EXPECT_TRUE(line.starts_with(family + "{") || line.starts_with(family + "_")) << line;
        EXPECT_NE(line.find("} "), std::string::npos) << line;
    }
}

TEST_F(ServiceMetrics, CountJobsByTheirResults) {
    Print("a");
    Print("b");
    Doubt("c");
    HandIn("d");
    Ask("DELETE", "/v1/jobs/d");
    const std::string text = Metrics();
    for (const char* line : {"voltis_jobs_total{register=\"default\",result=\"printed\"} 2\n",
                             "voltis_jobs_total{register=\"default\",result=\"unknown\"} 1\n",
                             "voltis_jobs_total{register=\"default\",result=\"withdrawn\"} 1\n",
                             "voltis_jobs_total{register=\"bar\",result=\"printed\"} 0\n",
                             "voltis_jobs_in_doubt{register=\"default\"} 1\n",
                             "voltis_jobs_in_doubt{register=\"bar\"} 0\n"})
        EXPECT_THAT(text, HasSubstr(line));
}

TEST_F(ServiceMetrics, HaveTheDurationsAsAHistogram) {
    Print("a");
    Print("b");
    const std::string text = Metrics();
    EXPECT_THAT(text, HasSubstr("voltis_job_duration_seconds_bucket{register=\"default\","
                                "le=\"300\"} 2\n"));
    EXPECT_THAT(text, HasSubstr("le=\"+Inf\"} 2\n"));
    EXPECT_THAT(text, HasSubstr("voltis_job_duration_seconds_count{register=\"default\"} 2\n"));
    EXPECT_THAT(text, HasSubstr("voltis_job_duration_seconds_sum{register=\"default\"} "));
}

TEST_F(ServiceMetrics, TellTheQueueAndWhetherTheRegisterIsUp) {
    HandIn("a");
    HandIn("b");
    EXPECT_THAT(Metrics(), HasSubstr("voltis_queue_depth{register=\"default\"} 2\n"));
    EXPECT_THAT(Metrics(), HasSubstr("voltis_register_up{register=\"default\"} 1\n"));
    End("a", Kind::NotPrinted, {2, "ECR is missing or in OFF state", 100, ""});
    EXPECT_THAT(Metrics(), HasSubstr("voltis_register_up{register=\"default\"} 0\n"));
    settings_.isServed = [](const std::string&) { return false; };
    EXPECT_THAT(Metrics(), HasSubstr("voltis_register_up{register=\"bar\"} 0\n"));
}

TEST_F(ServiceMetrics, AreForReadersAndTheirRegister) {
    EXPECT_EQ(ProblemIn(GetBy(till_, "/metrics")), "403 scope");
    const std::string own = GetBy(ofBar_, "/metrics").body;
    EXPECT_THAT(own, HasSubstr("register=\"bar\""));
    EXPECT_THAT(own, Not(HasSubstr("register=\"default\"")));
}

// --- health --------------------------------------------------------------------------------------

TEST_F(Health, IsToldToAnybody) {
    const http::Response response = GetBy({}, "/healthz");
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(response.body, "{\"status\":\"ok\"}\n");
}

TEST_F(Health, IsBadWithoutTheJournalAndSoIsEverythingElse) {
    HandIn("a");
    const Waiting waiting = Wait(RequestFor("GET", "/v1/jobs/a", {{"prefer", "wait=9"}}));
    const std::string secret = folder_.Path();
    Description();
    BreakJournal();
    for (const char* path : {"/v1/jobs", "/v1/jobs/a", "/v1/registers", "/metrics"}) {
        const http::Response response = Get(path);
        EXPECT_EQ(ProblemIn(response), "503 journal") << path;
        EXPECT_NE(HeaderOf(response, "Retry-After"), "");
        EXPECT_THAT(response.body, Not(HasSubstr(secret)));
    }
    EXPECT_EQ(ProblemIn(HandIn("b")), "503 journal");
    EXPECT_EQ(ProblemIn(*AskAgain(waiting)), "503 journal");
}

// --- the description -----------------------------------------------------------------------------

TEST_F(OpenApiDescription, HasEveryRoute) {
    EXPECT_EQ(Description()["openapi"], "3.1.0");
    std::size_t operations = 0;
    for (const json& item : Description()["paths"]) operations += item.size();
    EXPECT_EQ(operations, api::Routes().size());
    EXPECT_TRUE(Description()["paths"]["/v1/registers/{register}/jobs"].contains("post"));
}

TEST_F(OpenApiDescription, HasASchemaForEveryReference) {
    const std::string text = Description().dump();
    const std::string mark = "\"$ref\":\"#";
    std::size_t references = 0;
    for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1)) {
        const std::size_t begin = at + mark.size();
        const std::string pointer = text.substr(begin, text.find('"', begin) - begin);
        EXPECT_TRUE(Description().contains(json::json_pointer(pointer))) << pointer;
        ++references;
    }
    EXPECT_GT(references, 20U);
}

TEST_F(OpenApiDescription, NamesEveryOperationOnceAndItsParameters) {
    std::set<std::string> names;
    for (const auto& [path, item] : Description()["paths"].items()) {
        for (const auto& [method, operation] : item.items()) {
            EXPECT_TRUE(names.insert(operation["operationId"]).second) << path;
            std::size_t inPath = 0;
            for (const json& parameter : operation.value("parameters", json::array()))
                inPath += parameter["in"] == "path" ? 1 : 0;
            EXPECT_EQ(inPath, CountOf(path, "{")) << path;
            EXPECT_TRUE(operation["responses"].contains("200")) << path;
        }
    }
}

TEST_F(OpenApiDescription, TellsWhichTokensMayDoWhat) {
    const json& paths = Description()["paths"];
    EXPECT_EQ(paths["/healthz"]["get"]["security"], json::array());
    EXPECT_THAT(paths["/v1/jobs"]["get"]["description"].get<std::string>(), HasSubstr("read"));
    EXPECT_FALSE(paths["/healthz"]["get"]["responses"].contains("401"));
}

TEST_F(OpenApiDescription, HasTheRefusalsOfTheGate) {
    folder_.Write("tokens", "no file of tokens\n");
    tokens::Book none(folder_.File("none"));
    tokens::Book broken(folder_.File("tokens"));
    std::set<std::string> refused;
    const auto refuse = [&](const Headers& headers, const std::string& address, tokens::Book& book,
                            bool tooOften = false) {
        gate::Settings settings;
        if (tooOften) settings.ofAddress = {0, 0.001};
        gate::Gate gate(settings, book);
        http::Request request = RequestFor("GET", "/v1/jobs/a", headers);
        request.peer.address = address;
        const gate::Admission admission = gate.Admit(request, gate::Time(std::chrono::hours(1)));
        ASSERT_TRUE(std::holds_alternative<http::Response>(admission));
        Hold(request, std::get<http::Response>(admission));
        refused.insert(ProblemIn(std::get<http::Response>(admission)));
    };
    const std::string own = "127.0.0.1";
    refuse({}, own, none);
    refuse({{"host", "elsewhere.example"}}, own, none);
    refuse({{"host", own}, {"origin", "https://elsewhere.example"}}, own, none);
    refuse({{"host", own}}, own, none);
    refuse({{"host", own}, {"authorization", "Basic YTpi"}}, own, none);
    refuse({{"host", own}, {"authorization", "Bearer x"}}, own, none);
    refuse({{"host", own}, {"authorization", "Bearer x"}}, own, broken);
    refuse({{"host", own}, {"cookie", "voltis=x"}}, own, none);
    refuse({{"host", own}}, own, none, true);
    refuse({}, "", none);
    EXPECT_THAT(refused,
                testing::UnorderedElementsAre(
                    "400 no-host", "421 foreign-host", "403 foreign-origin", "401 no-token",
                    "400 bad-authorization", "401 bad-token", "503 tokens-unusable",
                    "401 no-session", "429 too-many-requests", "403 not-in-group"));
}

// The proof that the tests above would notice.
TEST_F(OpenApiDescription, RefusesAnswersThatItDoesNotDescribe) {
    const http::Request request = RequestFor("GET", "/v1/jobs/a");
    const auto mistakes = [&](const http::Response& response) {
        return MistakesByDescription(request, response, Description()).size();
    };
    Print("a");
    const http::Response good = Get("/v1/jobs/a");
    EXPECT_EQ(mistakes(good), 0U);
    http::Response bad = good;
    bad.status = 201;
    EXPECT_NE(mistakes(bad), 0U);
    bad = good;
    bad.type = "text/html";
    EXPECT_NE(mistakes(bad), 0U);
    bad = good;
    bad.headers.clear();
    EXPECT_NE(mistakes(bad), 0U) << "no ETag";
    json body = json::parse(good.body);
    body.erase("till");
    bad = good;
    bad.body = body.dump();
    EXPECT_NE(mistakes(bad), 0U);
    bad.body = "{";
    EXPECT_NE(mistakes(bad), 0U);
}
