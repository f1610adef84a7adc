// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "bench/Spawn.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace {

double MedianOf(const std::vector<RunFigures>& runs, double (*figure)(const RunFigures&)) {
    std::vector<double> values;
    for (const RunFigures& run : runs) values.push_back(figure(run));
    return Median(values);
}

std::string ReadToEnd(int fd) {
    std::string text;
    char block[4096];
    for (ssize_t count; (count = read(fd, block, sizeof block)) > 0;)
        text.append(block, static_cast<std::size_t>(count));
    return text;
}

pid_t SpawnInto(int output, const CommandLine& command) {
    std::vector<char*> argv;
    for (const std::string& word : command) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    pid_t pid = -1;
    const int error = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::runtime_error("cannot run " + command[0]);
    return pid;
}

}  // namespace

int ExitCodeOf(const CommandLine& command) {
    int status = 0;
    waitpid(SpawnInto(STDOUT_FILENO, command), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

double Median(std::vector<double> values) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    const std::size_t middle = values.size() / 2;
    return values.size() % 2 != 0 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

double Series::WallMs() const {
    return MedianOf(runs, [](const RunFigures& run) { return run.wallMs; });
}

double Series::ProcessorMs() const {
    return MedianOf(runs, [](const RunFigures& run) { return run.processorMs; });
}

long Series::PeakKb() const {
    return static_cast<long>(
        MedianOf(runs, [](const RunFigures& run) { return static_cast<double>(run.peakKb); }));
}

std::string OutputOf(const CommandLine& command) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    const pid_t pid = SpawnInto(ends[1], command);
    close(ends[1]);
    const std::string output = ReadToEnd(ends[0]);
    close(ends[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error(command[0] + " failed: " + output);
    return output;
}

std::vector<Series> RunInTurn(int rounds, const std::vector<CommandLine>& commands) {
    CommandLine all = {SPAWNER_PATH, std::to_string(rounds)};
    for (const CommandLine& command : commands) {
        if (&command != &commands.front()) all.push_back("--");
        all.insert(all.end(), command.begin(), command.end());
    }
    std::istringstream lines(OutputOf(all));
    std::vector<Series> series(commands.size());
    std::size_t index = 0;
    double wall = 0;
    double processor = 0;
    long peak = 0;
    for (int exitCode = 0; lines >> index >> wall >> processor >> peak >> exitCode;) {
        if (exitCode != 0)
            throw std::runtime_error(commands[index][0] + " ended with exit code " +
                                     std::to_string(exitCode));
        series[index].runs.push_back({wall / 1000, processor / 1000, peak});
    }
    return series;
}
