// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/voltisd/Daemon.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <thread>
#include <utility>

#include "companion/api/OpenApi.h"
#include "companion/http/Path.h"
#include "companion/runner/Files.h"
#include "tests/api/Described.h"
#include "tests/support/Programs.h"

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

std::string OwnGroup() {
    const group* entry = getgrgid(getegid());
    return entry == nullptr ? "root" : entry->gr_name;
}

bool HasLineThatBegins(const std::string& text, const std::string& begin) {
    return text.starts_with(begin) || text.find("\n" + begin) != std::string::npos;
}

bool IsForPrograms(const std::vector<std::string>& segments) {
    if (segments.empty()) return false;
    const std::string& first = segments.front();
    return first == "v1" || first == "openapi.json" || first == "metrics" || first == "healthz";
}

http::Response ResponseOf(const Answer& answer) {
    http::Response response{answer.status, "", answer.body};
    for (const auto& [name, value] : answer.headers)
        if (name == "content-type") response.type = value;
    response.headers.assign(answer.headers.begin(), answer.headers.end());
    return response;
}

}  // namespace

Daemon::Daemon(const std::string& device) {
    for (const char* name : {"etc", "etc/registers", "locks", "logs", "state"})
        std::filesystem::create_directory(File(name));
    folder_.Write("etc/voltis.ini", "[VOLTIS]\nDevice=" + device + "\nStandardLog=1\n");
    Configure("");
}

Daemon::~Daemon() {
    Kill();
}

void Daemon::Configure(const std::string& lines) const {
    std::string all = "[voltisd]\n" + lines;
    const std::vector<std::pair<std::string, std::string>> usual = {{"Socket=", Socket()},
                                                                    {"Group=", OwnGroup()},
                                                                    {"Tokens=", File("etc/tokens")},
                                                                    {"Listen=", "none"}};
    for (const auto& [key, value] : usual)
        if (lines.find(key) == std::string::npos) all += key + value + "\n";
    runner::WriteFile(File("etc/voltisd.conf"), all);
}

std::vector<std::string> Daemon::Command() const {
    return {VoltisdPath(), "--config",    File("etc"), "--journal", File("state/journal.db"),
            "--locks",     File("locks"), "--logs",    File("logs")};
}

void Daemon::Launch() {
    const std::vector<std::string> command = Command();
    std::vector<char*> arguments;
    std::ranges::transform(command, std::back_inserter(arguments),
                           [](const std::string& word) { return const_cast<char*>(word.c_str()); });
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, File("said").c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND, 0600);
    const int failed =
        posix_spawn(&process_, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) process_ = -1;
}

bool Daemon::HasEnded() const {
    siginfo_t ended{};
    waitid(P_PID, static_cast<id_t>(process_), &ended, WEXITED | WNOHANG | WNOWAIT);
    return ended.si_pid != 0;
}

bool Daemon::Start() {
    const std::size_t before = Said().size();
    Launch();
    const auto end = Clock::now() + 60s;
    while (process_ > 0 && !HasEnded() && Clock::now() < end) {
        if (HasLineThatBegins(Said().substr(before), "serving ")) return true;
        std::this_thread::sleep_for(5ms);
    }
    return false;
}

void Daemon::Signal(int signal) const {
    if (process_ > 0) kill(process_, signal);
}

pid_t Daemon::Worker() const {
    const std::string own = std::to_string(process_);
    const std::string children = "/proc/" + own + "/task/" + own + "/children";
    return static_cast<pid_t>(std::strtol(runner::ReadFileIfAny(children).c_str(), nullptr, 10));
}

int Daemon::WaitForEnd(std::chrono::milliseconds longest) {
    int status = 0;
    for (const auto end = Clock::now() + longest; Clock::now() < end;) {
        if (waitpid(process_, &status, WNOHANG) == process_) {
            process_ = -1;
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        }
        std::this_thread::sleep_for(5ms);
    }
    return -1;
}

void Daemon::Kill() {
    if (process_ <= 0) return;
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    process_ = -1;
}

std::string Daemon::Address() const {
    const std::string said = Said();
    const std::size_t at = said.find(" 127.0.0.1:");
    return at == std::string::npos
               ? ""
               : said.substr(at + 1, said.find_first_of(" \n", at + 1) - at - 1);
}

Answer Daemon::Ask(const std::string& method, const std::string& target,
                   const std::vector<std::string>& headers, const std::string& body) const {
    return AskAt(Socket(), method, target, headers, body);
}

Answer Daemon::AskAt(const std::string& place, const std::string& method, const std::string& target,
                     const std::vector<std::string>& headers, const std::string& body) {
    std::string request = method + " " + target + " HTTP/1.1\r\nHost: localhost\r\n";
    for (const std::string& header : headers) request += header + "\r\n";
    if (!body.empty()) request += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    Client client(place);
    client.Send(request + "Connection: close\r\n\r\n" + body);
    for (const auto end = Clock::now() + 60s; Clock::now() < end && !client.isClosed;) {
        pollfd news{client.fd, POLLIN, 0};
        poll(&news, 1, 100);
        client.Read();
    }
    Answer answer = TakeAnswer(client.received, client.isClosed).value_or(Answer());
    Hold(method, target, answer);
    return answer;
}

void Daemon::Hold(const std::string& method, const std::string& target, const Answer& answer) {
    http::Request request;
    request.method = method;
    request.segments =
        http::SegmentsOf(target.substr(0, target.find('?'))).value_or(request.segments);
    if (answer.status == 0 || !IsForPrograms(request.segments)) return;
    static const nlohmann::json description = api::OpenApi("1.2.3");
    EXPECT_THAT(MistakesByDescription(request, ResponseOf(answer), description), testing::IsEmpty())
        << method << " " << target << " " << answer.status << " " << answer.body;
}

Answer Daemon::HandIn(const std::string& key, const std::string& content, int wait) const {
    return Repeated([&] {
        return Ask("POST", "/v1/registers/default/jobs",
                   {"Idempotency-Key: " + key, "Content-Type: text/plain",
                    "Prefer: wait=" + std::to_string(wait)},
                   content);
    });
}

Answer Daemon::Repeated(const std::function<Answer()>& ask) {
    Answer answer = ask();
    for (const auto end = Clock::now() + 60s; Clock::now() < end && answer.status == 503;) {
        if (answer.body.find("\"urn:voltis:problem:journal\"") == std::string::npos) break;
        std::this_thread::sleep_for(50ms);
        answer = ask();
    }
    return answer;
}

nlohmann::json Daemon::JsonOf(const Answer& answer) {
    return nlohmann::json::parse(answer.body, nullptr, false);
}

std::string Daemon::Said() const {
    return runner::ReadFileIfAny(File("said"));
}
