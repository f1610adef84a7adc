// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/companion/Tool.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <thread>

#include "companion/runner/DriverSettings.h"
#include "companion/runner/Sandbox.h"
#include "companion/workbench/Defaults.h"
#include "companion/workbench/WorkFolder.h"
#include "tests/support/Programs.h"
#include "tests/support/Regex.h"

namespace fs = std::filesystem;

Tool::Tool(const Words& arguments, const Words& environment)
    : Tool(CommandLine{Words{VoltisctlPath()} + arguments}, environment) {}

Tool::Tool(const CommandLine& command, const Words& environment) {
    std::array<int, 2> in{};
    std::array<int, 2> out{};
    if (pipe2(in.data(), O_CLOEXEC) != 0 || pipe2(out.data(), O_CLOEXEC) != 0) abort();
    in_ = in[1];
    out_ = out[0];
    Spawn(command, environment, in[0], out[1]);
    close(in[0]);
    close(out[1]);
}

Tool::~Tool() {
    CloseInput();
    if (pid_ != -1) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close(out_);
}

void Tool::Type(const std::string& line) {
    TypeWithoutLineFeed(line + "\n");
}

void Tool::TypeWithoutLineFeed(const std::string& text) {
    ASSERT_EQ(write(in_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

void Tool::CloseInput() {
    if (in_ != -1) close(in_);
    in_ = -1;
}

void Tool::Signal(int number) const {
    kill(pid_, number);
}

std::string Tool::SaidUpTo(const std::string& text) {
    while (said_.find(text) == std::string::npos && ReadMore()) {
    }
    const size_t place = said_.find(text);
    if (place == std::string::npos) {
        ADD_FAILURE() << "never said: " << text << " but: " << said_;
        return said_;
    }
    const std::string part = said_.substr(0, place + text.size());
    said_.erase(0, part.size());
    return part;
}

bool Tool::EndsWithin(int milliseconds) const {
    constexpr int stepMs = 10;
    for (int waited = 0;; waited += stepMs) {
        siginfo_t end = {};
        waitid(P_PID, static_cast<id_t>(pid_), &end, WEXITED | WNOHANG | WNOWAIT);
        if (end.si_pid == pid_) return true;
        if (waited >= milliseconds) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(stepMs));
    }
}

int Tool::Wait() {
    while (ReadMore()) {
    }
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void Tool::Spawn(const CommandLine& command, const Words& environment, int in, int out) {
    Words words = Words{"env"} + environment + command.words;
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out, STDERR_FILENO);
    ASSERT_EQ(posix_spawn(&pid_, "/usr/bin/env", &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
}

// False at the end, and after 20 s of silence.
bool Tool::ReadMore() {
    pollfd news = {out_, POLLIN, 0};
    if (poll(&news, 1, 20000) <= 0) return false;
    std::array<char, 4096> block{};
    const ssize_t count = read(out_, block.data(), block.size());
    if (count > 0) said_.append(block.data(), static_cast<size_t>(count));
    return count > 0;
}

std::set<std::string> SubCommandsOfHelp() {
    const std::string help = RunTool({"--help"}).text;
    std::set<std::string> names;
    for (const Regex::Found& row : Regex("\n  ([a-z]+) ").FindAll(help.substr(help.rfind(":\n"))))
        names.insert(row[1]);
    return names;
}

std::set<std::string> OptionsOfHelp(const std::string& command) {
    const std::string help = RunTool({command, "--help"}).text;
    std::set<std::string> all;
    for (const Regex::Found& row : Regex("\n  (-[a-z], ?)?(--[a-z-]+)").FindAll(help)) {
        all.insert(row[2]);
        if (!row[1].empty()) all.insert(row[1].substr(0, 2));
    }
    return all;
}

testing::AssertionResult Holds(const std::string& text, const Words& parts) {
    for (const std::string& part : parts) {
        if (text.find(part) == std::string::npos) {
            return testing::AssertionFailure() << "no '" << part << "' in: " << text;
        }
    }
    return testing::AssertionSuccess();
}

Answer RunTool(const Words& arguments, const Words& environment) {
    Tool tool(arguments, environment);
    tool.CloseInput();
    const int exitCode = tool.Wait();
    return {exitCode, tool.Said()};
}

Answer Try(Words arguments, const Words& environment) {
    const TempDir temporary;
    Words all = {"TMPDIR=" + temporary.Path()};
    all.insert(all.end(), environment.begin(), environment.end());
    arguments.insert(arguments.begin(), {"try", "--strict"});
    const Answer answer = RunTool(arguments, all);
    EXPECT_TRUE(fs::is_empty(temporary.Path()));
    EXPECT_FALSE(Holds(answer.text, {complains}));
    return answer;
}

std::string Section(const std::string& text, const std::string& title, size_t from) {
    const std::string head = "--- " + title + "\n";
    const size_t start = text.find(head, from);
    if (start == std::string::npos) {
        ADD_FAILURE() << "no section " << title << " in: " << text;
        return "";
    }
    const size_t body = start + head.size();
    return text.substr(body, text.find("\n--- ", body - 1) + 1 - body);
}

std::string Script(const TempDir& folder, const std::string& name, const std::string& text) {
    const std::string path = folder.Write(name, "#!/bin/sh\n" + text + "\n");
    chmod(path.c_str(), 0755);
    return path;
}

std::string Conversation(const Words& frames) {
    std::string script = "exec 3<>${line:-/dev/ttyS0}; stty raw -echo <&3\n";
    for (const std::string& frame : frames) {
        script += "printf '" + frame + "' >&3\n";
        script += "timeout --foreground 1 head -c 4 <&3 | od -An -tx1\n";
    }
    return script;
}

int EntriesIn(const std::string& folder) {
    return static_cast<int>(
        std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

bool Eventually(const std::function<bool()>& condition) {
    for (int i = 0; i < 500 && !condition(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return condition();
}

std::string PtyOf(Tool& tool) {
    std::string path = tool.SaidUpTo("\n");
    path.pop_back();
    return path;
}

int DriveFile(const std::string& device, const std::string& file, emulator::WireFamily frames) {
    runner::DriverSettings settings = workbench::FrameSettings(frames);
    settings.Set("ComNumber", "1");
    workbench::WorkFolder folder(settings);
    const std::string name = folder.Take(file);
    runner::SandboxPlan plan = folder.Prepare(device);
    plan.driver = VoltisPath();
    plan.files = folder.Files().Path();
    runner::SandboxedRun run(plan, {runner::insideDriver, name});
    EXPECT_TRUE(Eventually([&] { return run.Ended(); }));
    return run.ExitCode();
}

int DriveAt(const std::string& device, const std::string& example, emulator::WireFamily frames) {
    return DriveFile(device, examples + "/" + example, frames);
}
