// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "tests/faults/system/SystemCalls.h"

#include <algorithm>
#include <fstream>
#include <map>

#include "tests/faults/Campaign.h"

namespace faults {

namespace {

std::string Between(const std::string& text, char open, char close, std::size_t from = 0) {
    const std::size_t begin = text.find(open, from);
    if (begin == std::string::npos) return "";
    const std::size_t end = text.find(close, begin + 1);
    return end == std::string::npos ? "" : text.substr(begin + 1, end - begin - 1);
}

/// openat(AT_FDCWD</x>, "cmd.txt", O_RDONLY), unlink("x"), read(6</dev/ttyS0>, ""..., 1)
std::string TargetOf(const std::string& name, const std::string& arguments) {
    const bool byName = name == "openat" || name == "unlink" || name == "stat" ||
                        (name == "newfstatat" && arguments.starts_with("AT_FDCWD"));
    if (byName) return Between(arguments, '"', '"');
    const std::size_t descriptor = arguments.find_first_not_of("0123456789");
    const bool hasDescriptor =
        descriptor != 0 && descriptor != std::string::npos && arguments[descriptor] == '<';
    return hasDescriptor ? Between(arguments, '<', '>') : "";
}

std::vector<SystemCall> ReadRecord(const std::string& file) {
    std::vector<SystemCall> calls;
    std::map<std::string, int> numbers;
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        line.erase(0, line.find_first_not_of("0123456789 "));  // the process
        const std::size_t name = line.find_first_not_of("abcdefghijklmnopqrstuvwxyz_0123456789");
        if (name == 0 || name == std::string::npos || line[name] != '(') continue;
        SystemCall call;
        call.name = line.substr(0, name);
        call.number = ++numbers[call.name];
        call.target = TargetOf(call.name, line.substr(name + 1));
        call.text = line;
        calls.push_back(call);
    }
    return calls;
}

}  // namespace

std::vector<std::string> Strace(const std::vector<std::string>& arguments, Processes whose) {
    // The leak detector of a driver under the sanitizers wants to trace the process, too.
    std::vector<std::string> words = {"env", "ASAN_OPTIONS=detect_leaks=0", "strace"};
    if (whose == Processes::All) words.push_back("-f");
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

std::vector<std::string> RecordingCalls(const std::string& file, Processes whose) {
    return Strace({"-y", "-s", "200", "-o", file}, whose);
}

std::vector<SystemCall> RecordedCalls(const std::string& file, const std::string& firstFile) {
    std::vector<SystemCall> calls = ReadRecord(file);
    const auto first = std::ranges::find_if(
        calls, [&](const SystemCall& call) { return call.target.ends_with(firstFile); });
    calls.erase(calls.begin(), first);
    return calls;
}

std::vector<std::string> Injecting(const SystemCall& call, const Injection& injection,
                                   const std::string& file, Processes whose) {
    const std::string when = std::to_string(call.number) + (injection.forEver ? "+" : "");
    std::vector<std::string> words = {"-y", "-o", file};
    // Quicker, but signals get lost that way, and strace has it for all processes only.
    const bool quick = !injection.what.starts_with("signal=") && whose == Processes::All;
    if (quick) words.push_back("--seccomp-bpf");
    words.insert(words.end(), {"-e", "trace=" + call.name, "-e",
                               "inject=" + call.name + ":" + injection.what + ":when=" + when});
    return Strace(words, whose);
}

std::vector<SystemCall> InjectedCalls(const std::string& file) {
    std::vector<SystemCall> calls = ReadRecord(file);
    std::erase_if(calls, [](const SystemCall& call) {
        return call.text.find("(INJECTED") == std::string::npos;
    });
    return calls;
}

}  // namespace faults
