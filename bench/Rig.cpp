// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "bench/Rig.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "companion/workbench/Defaults.h"
#include "companion/workbench/Serving.h"

namespace {

constexpr char commandFile[] = "cmd.txt";
constexpr char exchangeFile[] = "exchange.txt";
constexpr char device[] = "/dev/ttyS0";
constexpr char debugLog[] = "/var/log/voltis/dbgerror.log";

using emulator::Bytes;
using emulator::WireFamily;

void Write(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

/// As little as a shop needs, and the debug log.
std::string SettingsFor(WireFamily family) {
    runner::DriverSettings settings = workbench::SettingsFor(family);
    settings.Remove("StandardLog");
    return settings.Text();
}

double NowMs() {
    using std::chrono::steady_clock;
    return std::chrono::duration<double, std::milli>(steady_clock::now().time_since_epoch())
        .count();
}

/// Its path, for the program that starts it has another /proc/self/exe.
std::string ThisProgram() {
    return std::filesystem::read_symlink("/proc/self/exe");
}

void Watch(emulator::Line& line, std::vector<FrameSeen>& frames) {
    line.OnReceive([&frames](Bytes& b) { frames.push_back({true, b, NowMs()}); });
    line.OnSend([&frames](Bytes& b) { frames.push_back({false, b, NowMs()}); });
}

}  // namespace

double ServedRun::LineMs() const {
    const double bytes = static_cast<double>(counters.bytesIn + counters.bytesOut);
    return bytes * byteMs / static_cast<double>(series.runs.size());
}

Rig::Rig(WireFamily family) : family_(family) {
    Write("/etc/voltis/voltis.ini", SettingsFor(family));
}

template <typename Action>
ServedRun Rig::Serve(const std::string& commands, Action action) const {
    Write(commandFile, commands);
    emulator::PtyOptions options;
    options.link = device;
    options.bitsPerSecond = paced_ ? 19200 : 0;
    workbench::Station station(workbench::RegisterFor(family_), family_, options);
    ServedRun run;
    if (noteFrames_) Watch(station.line, run.frames);
    workbench::Serving serving(station.server);
    action(run);
    serving.Finish();
    run.counters = station.line.Counters();
    return run;
}

ServedRun Rig::Run(const std::string& commands, int rounds) const {
    return Serve(commands, [&](ServedRun& run) {
        for (int i = 0; i < rounds; ++i) {
            const Series one = RunInTurn(1, {{VOLTIS_PATH, commandFile}})[0];
            run.series.runs.push_back(one.runs.front());
            remove(debugLog);
        }
    });
}

Series Rig::Replay(const ServedRun& run) const {
    WriteExchange(run.frames, exchangeFile);
    Series series;
    Serve("", [&](ServedRun&) {
        series = RunInTurn(1, {{ThisProgram(), "--replay", exchangeFile, device}})[0];
    });
    return series;
}

std::vector<Series> Rig::RunEach(const std::string& commands, int rounds,
                                 const std::vector<CommandLine>& programs) const {
    std::vector<CommandLine> all = programs;
    for (CommandLine& program : all) program.emplace_back(commandFile);
    std::vector<Series> series;
    Serve(commands, [&](ServedRun&) { series = RunInTurn(rounds, all); });
    remove(debugLog);
    return series;
}

std::string Rig::RunUnder(const CommandLine& program, const std::string& commands) const {
    std::string output;
    Serve(commands, [&](ServedRun&) {
        CommandLine all = program;
        all.insert(all.end(), {VOLTIS_PATH, commandFile});
        output = OutputOf(all);
    });
    remove(debugLog);
    return output;
}
