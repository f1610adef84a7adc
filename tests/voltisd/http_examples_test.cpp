// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The examples for tills of a network in examples/http/: one program in three languages. Each goes
// through the same day at the shipped service with an emulated register, and has to say the same
// and print the same. The web page among the examples is tested in tests/browser/.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "companion/server/Listening.h"
#include "tests/companion/Languages.h"
#include "tests/companion/Tool.h"
#include "tests/support/Programs.h"
#include "tests/support/Regex.h"
#include "tests/support/TempDir.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

const std::string http = examples + "/http/";

const std::vector<Language> languages = {
    {"Python", "sell.py", {"python3"}},
    {"PHP", "sell.php", {"php"}},
    {"CSharp", "Sell.cs", {"mcs", "mono"}},
};

Words CommandOf(const Language& language, const TempDir& folder) {
    if (language.name != "CSharp") return language.needs + Words{http + language.source};
    return CompiledSharp(http + language.source,
                         "System.Net.Http,System.Runtime.Serialization,System.Xml", folder);
}

// --- the day -------------------------------------------------------------------------------------

// What is typed at the register or resolved first, what is sold, and what the till then says. The
// address of the service is SERVICE there.
struct Scene {
    std::string title;
    Words typed;
    Words sold;
    int exitCode;
    std::string said;
};

const std::vector<Scene> day = {
    {"a sale, with a letter that is not ASCII",
     {},
     {"A-1", "K\u0101posti", "1.20", "Tea \"Earl\"; 50g", "4.50"},
     0,
     "A-1: printed, receipt 1\n"},
    {"the same once more",
     {},
     {"A-1", "K\u0101posti", "1.20", "Tea \"Earl\"; 50g", "4.50"},
     0,
     "A-1: printed, receipt 1\n"},
    {"the same, as it is stored", {}, {"A-1"}, 0, "A-1: printed, receipt 1\n"},
    {"other goods under its ID",
     {},
     {"A-1", "Tea", "1.20"},
     1,
     "sell: other goods were sold under this ID\n"},
    {"names that would be commands",
     {},
     {"A-2", "x\"; PRICE=0.01", "2.00", "Soap\nTENDER", "1.5", "Path C:\\", "3", "", "0.10"},
     0,
     "A-2: printed, receipt 2\n"},
    {"a name that is too long",
     {},
     {"A-3", "A name that is far too long", "1"},
     1,
     "A-3: not printed, a mistake of the program: NAME is too long (line: 1)\n"
     "  Shorten it: docs/command-language.md has the length for each model.\n"},
    {"a character that the code page lacks",
     {},
     {"A-4", "\u2192", "1"},
     1,
     "A-4: not printed, a mistake of the program: line 1, column 23: code page RIM lacks this "
     "character\n"},
    {"a silent register",
     {"power off"},
     {"B-1", "Milk", "1.29"},
     2,
     "B-1: not printed: ECR is missing or in OFF state\n"
     "  Switch the register on and look at its cable; then at the port and at ProtocolFormatting "
     "in the configuration.\n"
     "  Then sell it again under the same ID.\n"},
    {"the register is on again",
     {"power on"},
     {"B-1", "Milk", "1.29"},
     0,
     "B-1: printed, receipt 3\n"},
    {"the paper ends before the tender",
     {"paper out after 3 lines"},
     {"C-1", "Milk", "1.29", "Bread", "2.00"},
     101,
     "C-1: part, at least 2 of 3 commands: Receipt paper end\n"
     "  Put in paper. Then look at what is printed, and finish the receipt on the register.\n"
     "  Look at the paper. Finish or cancel an open receipt on the register.\n"
     "  Then record what the paper says: SERVICE/jobs/5\n"},
    {"it was finished on the register",
     {"paper in", "finish", "resolve C-1 printed"},
     {"C-1", "Milk", "1.29", "Bread", "2.00"},
     0,
     "C-1: printed, receipt 4\n"},
    {"power fails when an item is sent",
     {"power off at data 2"},
     {"D-1", "Jam", "2.00"},
     101,
     "D-1: unknown, at least 0 of 2 commands: ECR response lost\n"
     "  Switch the register on and look at its cable. When it happens at reports or tenders, raise "
     "CmdTimeout_Report or CmdTimeout_Tender (docs/reference.md).\n"
     "  Look at the paper. Finish or cancel an open receipt on the register.\n"
     "  Then record what the paper says: SERVICE/jobs/6\n"},
    {"the paper shows nothing of it",
     {"power on", "resolve D-1 not-printed"},
     {"D-1", "Jam", "2.00"},
     0,
     "D-1: printed, receipt 5\n"},
    {"power fails after the last command",
     {"power off after eof 3"},
     {"E-1", "Rice", "2.20"},
     101,
     "E-1: printed, receipt ?, but: ECR response lost\n"
     "  Look at the register before the next sale.\n"},
    {"a price that would be a parameter",
     {"power on"},
     {"H-1", "Tea", "1; QNTY=2"},
     1,
     "sell: PRICE is up to 999999.99\n"},
    {"an ID that would be another folder",
     {},
     {"../H-1", "Tea", "1"},
     1,
     "sell: ID has letters, digits and -\n"},
    {"no price", {}, {"H-1", "Tea"}, 1, "sell: each NAME wants a PRICE\n"},
    {"an ID that nothing was sold under",
     {},
     {"H-1"},
     1,
     "sell: nothing is stored under this ID\n"},
    {"nothing at all", {}, {}, 1, "sell: ID has letters, digits and -\n"},
};

// The register's paper, with what was typed between: each sale is there once.
constexpr char paperOfTheDay[] = R"(
 EMULATED REGISTER
Kāposti         1.20
Tea "Earl"; 50g 4.50
TOTAL           5.70
CASH            5.70
RECEIPT 000001

 EMULATED REGISTER
x"; PRICE=0.01  2.00
Soap TENDER     1.50
Path C:\        3.00
DEPARTMENT 01   0.10
TOTAL           6.60
CASH            6.60
RECEIPT 000002

> power off
> power on
 EMULATED REGISTER
Milk            1.29
TOTAL           1.29
CASH            1.29
RECEIPT 000003

> paper out after 3 lines
 EMULATED REGISTER
Milk            1.29
Bread           2.00
fault: paper out after 3 lines
> paper in
> finish
TOTAL           3.29
CASH            3.29
RECEIPT 000004

> power off at data 2
fault: power off at data 2
> power on
 EMULATED REGISTER
Jam             2.00
TOTAL           2.00
CASH            2.00
RECEIPT 000005

> power off after eof 3
 EMULATED REGISTER
Rice            2.20
TOTAL           2.20
CASH            2.20
RECEIPT 000006

fault: power off after eof 3
> power on
)";

std::string PaperWith(const std::string& name, const std::string& amount,
                      const std::string& number) {
    const auto line = [&](const std::string& word) {
        constexpr std::size_t width = 20;
        return word + std::string(width - word.size() - amount.size(), ' ') + amount + "\n";
    };
    return " EMULATED REGISTER\n" + line(name) + line("TOTAL") + line("CASH") + "RECEIPT 00000" +
           number + "\n\n";
}

// --- the shop ------------------------------------------------------------------------------------

// One that the service still finds free when it is started again: the kernel gives ports above
// these to everybody who does not name one.
std::string OwnAddress() {
    constexpr int lowest = 1024;
    constexpr int tried = 1000;
    const int first = std::stoi(ReadWholeFile("/proc/sys/net/ipv4/ip_local_port_range"));
    for (int port = first - 1 - getpid() % tried, left = tried; left > 0 && port >= lowest;
         --port, --left) {
        try {
            return server::ListenAt("127.0.0.1:" + std::to_string(port)).Name();
        } catch (const std::runtime_error&) {  // somebody else has it
        }
    }
    return "127.0.0.1:0";
}

// A register, the service on its machine, and a till with the example.
class NetworkTill : public testing::TestWithParam<Language> {
  protected:
    void SetUp() override {
        if (!IsInstalled(GetParam())) return;
        example_ = CommandOf(GetParam(), shop_);
        for (const char* name : {"etc", "etc/registers", "locks", "logs", "state", "sales"})
            fs::create_directory(shop_.File(name));
        register_ = std::make_unique<Tool>(
            Words{"emulate", "--strict", "--model", "lynx", "--link", shop_.File("register")});
        PtyOf(*register_);
        ConfigureTimeOuts("300");
        shop_.Write("token", AddToken("till", {}) + "\n");
        StartService(OwnAddress());
    }

    // ms
    void ConfigureTimeOuts(const std::string& of) const {
        shop_.Write("etc/voltis.ini", "[VOLTIS]\nDevice=" + shop_.File("register") +
                                          "\nStandardLog=1\nCmdTimeout_Default=" + of +
                                          "\nCmdTimeout_Tender=" + of + "\n");
    }

    std::string AddToken(const std::string& name, const Words& more) const {
        const Words command = {
            "token", "add", name, "--scope", "print", "--file", shop_.File("etc/tokens")};
        const auto token = Regex("vt_[^ \n]+").Find(RunTool(command + more).text);
        return token ? token->front() : "";
    }

    void StartService(const std::string& address) {
        shop_.Write("etc/voltisd.conf", "[voltisd]\nListen=" + address + "\nSocket=none\nTokens=" +
                                            shop_.File("etc/tokens") + "\n");
        service_ = std::make_unique<Tool>(
            CommandLine{{VoltisdPath(), "--config", shop_.File("etc"), "--journal",
                         shop_.File("state/journal.db"), "--locks", shop_.File("locks"), "--logs",
                         shop_.File("logs"), "--driver", VoltisPath()}});
        std::string line = service_->SaidUpTo("\n");
        while (line.ends_with('\n') && !line.starts_with("serving "))
            line = service_->SaidUpTo("\n");
        const auto serving = Regex("serving default at ([0-9.:]+)").Find(line);
        ASSERT_TRUE(serving);
        address_ = serving->at(1);
    }

    void KillService() {
        service_->Signal(SIGKILL);
        EXPECT_EQ(service_->Wait(), 128 + SIGKILL);
    }

    std::string Service() const { return "http://" + address_; }

    std::unique_ptr<Tool> Till(const Words& sold, const Words& more = {}) const {
        const Words environment = {"LC_ALL=C.UTF-8", "SERVICE=" + Service(), "WAIT=60",
                                   "TOKEN_FILE=" + shop_.File("token"),
                                   "SALES=" + shop_.File("sales")};
        return std::make_unique<Tool>(CommandLine{example_ + sold}, environment + more);
    }

    Answer Finish(Tool& till) const {
        const int exitCode = till.Wait();
        std::string said = till.Said();
        const std::size_t place = said.find(Service());
        if (place != std::string::npos) said.replace(place, Service().size(), "SERVICE");
        return {exitCode, said};
    }

    Answer Sell(const Words& sold, const Words& more = {}) const {
        return Finish(*Till(sold, more));
    }

    void Resolve(const std::string& sale, const std::string& verdict) const {
        const Answer answer = RunTool({"resolve", sale, "--as", verdict, "--note", "seen",
                                       "--journal", shop_.File("state/journal.db")});
        EXPECT_EQ(answer.exitCode, 0) << answer.text;
    }

    void TypeAtTheRegister(const std::string& text) {
        const bool isFault =
            text.find(" at ") != std::string::npos || text.find(" after ") != std::string::npos;
        register_->Type(text);
        const std::string answer = isFault ? "ordered: " + text + "\n" : "done\n";
        std::string said = register_->SaidUpTo(answer);
        said.resize(said.size() - answer.size());
        paper_ += text == "finish" ? "> finish\n" + said : said + "> " + text + "\n";
    }

    void Type(const std::string& text) {
        if (const auto words = Regex("resolve (.*) (.*)").Match(text))
            Resolve(words->at(1), words->at(2));
        else
            TypeAtTheRegister(text);
    }

    void Play(const Scene& scene) {
        SCOPED_TRACE(scene.title);
        for (const std::string& text : scene.typed) Type(text);
        const Answer answer = Sell(scene.sold);
        EXPECT_EQ(answer.exitCode, scene.exitCode);
        EXPECT_EQ(answer.text, scene.said);
    }

    // At the end of the day.
    std::string Paper() {
        register_->Signal(SIGTERM);
        EXPECT_EQ(register_->Wait(), 0);
        return "\n" + paper_ + register_->Said();
    }

    std::string Receipt(const std::string& sale) const {
        return ReadWholeFile(shop_.File("sales/" + sale + "/receipt"));
    }

    TempDir shop_;
    Words example_;
    std::unique_ptr<Tool> register_;
    std::unique_ptr<Tool> service_;
    std::string address_;
    std::string paper_;
};

// --- a service that answers as it is told --------------------------------------------------------

std::string AnswerOf(const std::string& status, const std::string& headers,
                     const std::string& body) {
    return "HTTP/1.1 " + status + "\r\n" + headers +
           "Content-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" +
           body;
}

class ScriptedAnswers {
  public:
    explicit ScriptedAnswers(Words answers)
        : answers_(std::move(answers)), thread_([this] { Serve(); }) {}
    ~ScriptedAnswers() { thread_.join(); }
    ScriptedAnswers(const ScriptedAnswers&) = delete;
    ScriptedAnswers& operator=(const ScriptedAnswers&) = delete;

    std::string Url() const { return "http://" + socket_.Name(); }

    /// When all of them have been given.
    const Words& Requests() const { return requests_; }
    Clock::duration Between(std::size_t first, std::size_t second) const {
        return times_.at(second) - times_.at(first);
    }

  private:
    static bool IsWhole(const std::string& request) {
        const auto length = Regex("\r\n[Cc]ontent-[Ll]ength: *([0-9]+)").Find(request);
        const std::size_t head = request.find("\r\n\r\n");
        return length && head != std::string::npos &&
               request.size() >= head + 4 + std::stoul(length->at(1));
    }

    static std::string RequestFrom(int connection) {
        std::string request;
        std::array<char, 4096> block{};
        while (!IsWhole(request)) {
            const ssize_t count = read(connection, block.data(), block.size());
            if (count <= 0) break;
            request.append(block.data(), static_cast<std::size_t>(count));
        }
        return request;
    }

    void Serve() {
        constexpr int longestMs = 30000;
        for (const std::string& answer : answers_) {
            pollfd news = {socket_.Fd(), POLLIN, 0};
            if (poll(&news, 1, longestMs) <= 0) return;
            const int connection = accept4(socket_.Fd(), nullptr, nullptr, SOCK_CLOEXEC);
            requests_.push_back(RequestFrom(connection));
            times_.push_back(Clock::now());
            EXPECT_EQ(write(connection, answer.data(), answer.size()),
                      static_cast<ssize_t>(answer.size()));
            close(connection);
        }
    }

    Words answers_;
    server::ListeningSocket socket_ = server::ListenAt("127.0.0.1:0");
    Words requests_;
    std::vector<Clock::time_point> times_;
    std::thread thread_;
};

std::string ProblemOf(const std::string& status, const std::string& name,
                      const std::string& headers = "Retry-After: 0\r\n") {
    return AnswerOf(status, "Content-Type: application/problem+json\r\n" + headers,
                    R"({"type":"urn:voltis:problem:)" + name + R"(","detail":"why"})");
}

// The value of a header, or what comes after the head.
std::string HeaderIn(const std::string& request, const std::string& name) {
    const auto line = Regex("\r\n" + name + ": ([^\r]*)").Find(request);
    return line ? line->at(1) : "";
}
std::string BodyOf(const std::string& request) {
    return request.substr(request.find("\r\n\r\n") + 4);
}

const Words tea = {"K-1", "Tea", "1.00"};

}  // namespace

TEST_P(NetworkTill, SellsEverythingOnceThroughADayOfTroubles) {
    for (const Scene& scene : day) Play(scene);
    EXPECT_EQ(Paper(), paperOfTheDay);
    EXPECT_EQ(Receipt("A-1"), "1\n");
    EXPECT_EQ(Receipt("D-1"), "5\n");
    EXPECT_EQ(Receipt("E-1"), "?\n");
    EXPECT_EQ(Receipt("A-3"), "");
}

TEST_P(NetworkTill, SellsOnceThoughTheServiceIsKilledMeanwhile) {
    KillService();
    const Answer none = Sell(tea, {"WAIT=1"});
    EXPECT_EQ(none.exitCode, 2);
    EXPECT_EQ(none.text, "K-1: not known: no answer in time\n  Sell it again under the same ID.\n");
    EXPECT_EQ(Receipt("K-1"), "");

    ConfigureTimeOuts("10000");
    const auto till = Till({"K-1"});  // as after a power failure of the till
    StartService(address_);
    register_->Type("late 2s");
    register_->SaidUpTo("fault: late 2s\n");
    KillService();  // while the receipt is being printed
    StartService(address_);
    const Answer answer = Finish(*till);
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_EQ(answer.text, "K-1: printed, receipt 1\n");
    EXPECT_EQ(Receipt("K-1"), "1\n");
    EXPECT_EQ(Paper(), "\n" + PaperWith("Tea", "1.00", "1"));
}

TEST_P(NetworkTill, SaysThatItsTokenIsNotTheRightOne) {
    const Answer unknown = Sell(tea, {"TOKEN_FILE=" + shop_.Write("wrong", "vt_wrong\n")});
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_EQ(unknown.text,
              "K-1: refused: The token is unknown, or was revoked\n"
              "  Look at the settings. Then sell it again under the same ID.\n");
    const std::string file = shop_.Write("foreign", AddToken("bar", {"--register", "bar"}) + "\n");
    const Answer foreign = Sell(tea, {"TOKEN_FILE=" + file});
    EXPECT_EQ(foreign.exitCode, 2);
    EXPECT_TRUE(Holds(foreign.text, {"K-1: refused: "})) << foreign.text;
    const Answer none = Sell(tea, {"TOKEN_FILE=" + shop_.File("none")});
    EXPECT_EQ(none.exitCode, 1);
    EXPECT_EQ(none.text, "sell: there is no token in " + shop_.File("none") + "\n");
    EXPECT_EQ(Sell(tea).text, "K-1: printed, receipt 1\n");
    EXPECT_EQ(Paper(), "\n" + PaperWith("Tea", "1.00", "1"));
}

TEST_P(NetworkTill, SendsTheSameAgainUntilAnAnswerDecides) {
    const ScriptedAnswers service({
        "",  // the connection is lost
        ProblemOf("409 Conflict", "running", "Retry-After: 2\r\n"),
        AnswerOf("202 Accepted", "Retry-After: 0\r\n", R"({"state":"received"})"),
        ProblemOf("429 Too Many Requests", "too-many-requests"),
        ProblemOf("503 Service Unavailable", "journal"),
        ProblemOf("500 Internal Server Error", "internal"),
        AnswerOf("502 Bad Gateway", "Retry-After: 0\r\n", "<h1>A proxy's page</h1>"),
        AnswerOf("200 OK", "Retry-After: 0\r\n", "<h1>A page to log in at the network</h1>"),
        AnswerOf("302 Found", "Retry-After: 0\r\nLocation: /elsewhere\r\n", ""),
        AnswerOf("200 OK", "Content-Type: application/json\r\n",
                 R"({"verdict":"printed","exit_code":0,"resolved":null,)"
                 R"("outcome":{"receipt":{"after":7}}})"),
    });
    const Answer answer = Sell(tea, {"SERVICE=" + service.Url()});
    EXPECT_EQ(answer.exitCode, 0);
    EXPECT_EQ(answer.text, "K-1: printed, receipt 7\n");
    ASSERT_EQ(service.Requests().size(), 10U);
    for (const std::string& request : service.Requests()) {
        EXPECT_TRUE(request.starts_with("POST /v1/registers/default/jobs HTTP/1.1\r\n")) << request;
        EXPECT_EQ(HeaderIn(request, "Idempotency-Key"), "K-1");
        EXPECT_EQ(HeaderIn(request, "Content-Type"), "text/plain; charset=utf-8");
        EXPECT_EQ(HeaderIn(request, "Prefer"), "wait=20");
        EXPECT_EQ(HeaderIn(request, "Authorization") + "\n",
                  "Bearer " + ReadWholeFile(shop_.File("token")));
        EXPECT_EQ(BodyOf(request), "SALE: DEPTNR=1; NAME=\"Tea\"; AMOUNT=1.00\nTENDER\n");
    }
    EXPECT_GE(service.Between(1, 2), std::chrono::milliseconds(1990));
}

TEST_P(NetworkTill, DoesNotSendAgainWhatTheJournalHasForgotten) {
    const ScriptedAnswers service({ProblemOf("500 Internal Server Error", "forgotten")});
    const Answer answer = Sell(tea, {"SERVICE=" + service.Url()});
    EXPECT_EQ(answer.exitCode, 101);
    EXPECT_TRUE(Holds(answer.text,
                      {"K-1: unknown, at least 0 of ? commands: why\n", "Look at the paper."}));
}

INSTANTIATE_TEST_SUITE_P(Examples, NetworkTill, testing::ValuesIn(languages), NameOf);
