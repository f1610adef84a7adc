#include "tests/support/Sandbox.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstring>
#include <iterator>
#include <stdexcept>

extern char** environ;

namespace {

void Append(std::vector<std::string>& list, const std::vector<std::string>& more) {
    list.insert(list.end(), more.begin(), more.end());
}

/// A folder of the host in that place, or a new one.
std::vector<std::string> FolderArguments(const std::string& folder, const std::string& place) {
    if (folder.empty()) return {"--dir", place};
    return {"--bind", folder, place};
}

pid_t Spawn(std::vector<std::string> words, FILE* out, FILE* err) {
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", 0, 0);
    posix_spawn_file_actions_adddup2(&actions, fileno(out), 1);
    posix_spawn_file_actions_adddup2(&actions, fileno(err), 2);
    pid_t pid = -1;
    const int failure = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure != 0) throw std::runtime_error(words[0] + ": " + strerror(failure));
    return pid;
}

std::string ReadFromStart(FILE* file) {
    std::string text;
    char part[4096];
    rewind(file);
    while (const std::size_t count = fread(part, 1, sizeof part, file)) text.append(part, count);
    return text;
}

}  // namespace

std::vector<std::string> SandboxCommandLine(const std::vector<std::string>& command,
                                            const SandboxOptions& options) {
    std::vector<std::string> words = {"bwrap", "--die-with-parent", "--bind", "/", "/", "--dev",
                                      "/dev",  "--tmpfs",           "/etc"};
    for (const char* needed : {"/etc/ld.so.cache", "/etc/alternatives", "/etc/localtime"}) {
        Append(words, {"--ro-bind-try", needed, needed});
    }
    Append(words, FolderArguments(options.configDir, "/etc/voltis"));
    Append(words, {"--tmpfs", "/var/log"});
    Append(words, FolderArguments(options.logDir, "/var/log/voltis"));
    if (!options.workDir.empty()) Append(words, {"--chdir", options.workDir});
    Append(words, options.bwrapArguments);
    words.push_back("--");
    Append(words, command);
    return words;
}

SandboxedProgram::SandboxedProgram(const std::vector<std::string>& command,
                                   const SandboxOptions& options)
    : out_(tmpfile()), err_(tmpfile()) {
    if (out_ == nullptr || err_ == nullptr) throw std::runtime_error("no temporary file");
    pid_ = Spawn(SandboxCommandLine(command, options), out_, err_);
}

SandboxedProgram::~SandboxedProgram() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    fclose(out_);
    fclose(err_);
}

ProgramResult SandboxedProgram::Wait() {
    int status = 0;
    if (waitpid(pid_, &status, 0) != pid_) throw std::runtime_error("no program to wait for");
    pid_ = -1;
    const int exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return {exitCode, ReadFromStart(out_), ReadFromStart(err_)};
}

ProgramResult RunInSandbox(const std::vector<std::string>& command, const SandboxOptions& options) {
    return SandboxedProgram(command, options).Wait();
}
