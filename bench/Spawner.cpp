// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// voltis_spawner ROUNDS COMMAND... [-- COMMAND...]: runs the commands in turn, ROUNDS times, with
// their output dropped, and prints a line for each run: the command's index, wall time and
// processor time in microseconds, the peak resident set in kilobytes, the exit code (128 + signal).
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

using Command = std::vector<char*>;  // ends with a null

std::vector<Command> CommandsFrom(char** words) {
    std::vector<Command> commands(1);
    for (; *words != nullptr; ++words) {
        if (strcmp(*words, "--") == 0) {
            commands.emplace_back();
        } else {
            commands.back().push_back(*words);
        }
    }
    for (Command& command : commands) command.push_back(nullptr);
    return commands;
}

long long Microseconds(const timeval& time) {
    return time.tv_sec * 1'000'000LL + time.tv_usec;
}

void RunOnce(std::size_t index, const Command& command, posix_spawn_file_actions_t& actions) {
    const auto begin = std::chrono::steady_clock::now();
    pid_t pid = -1;
    if (posix_spawn(&pid, command[0], &actions, nullptr, command.data(), environ) != 0) {
        fprintf(stderr, "voltis_spawner: cannot run %s\n", command[0]);
        exit(EXIT_FAILURE);
    }
    int status = 0;
    rusage usage{};
    wait4(pid, &status, 0, &usage);
    const auto wall = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - begin);
    printf("%zu %lld %lld %ld %d\n", index, static_cast<long long>(wall.count()),
           Microseconds(usage.ru_utime) + Microseconds(usage.ru_stime), usage.ru_maxrss,
           WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
}

}  // namespace

int main(int argc, char* argv[]) {
    if (argc < 3) {
        fprintf(stderr, "Usage: voltis_spawner ROUNDS COMMAND... [-- COMMAND...]...\n");
        return 2;
    }
    const std::vector<Command> commands = CommandsFrom(argv + 2);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    for (int round = atoi(argv[1]); round > 0; --round) {
        for (std::size_t i = 0; i < commands.size(); ++i) RunOnce(i, commands[i], actions);
    }
    posix_spawn_file_actions_destroy(&actions);
}
