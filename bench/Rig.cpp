#include "bench/Rig.h"

#include <cstdio>
#include <fstream>
#include <thread>

namespace {

constexpr char commandFile[] = "cmd.txt";
constexpr char debugLog[] = "/var/log/voltis/dbgerror.log";

using emulator::Bytes;
using emulator::WireFamily;

void Write(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

emulator::RegisterConfig RegisterFor(WireFamily family) {
    emulator::RegisterConfig config;
    config.model = emulator::FindModel(family == WireFamily::Margay ? "margay" : "ocelot", 2);
    return config;
}

double NowMs() {
    using std::chrono::steady_clock;
    return std::chrono::duration<double, std::milli>(steady_clock::now().time_since_epoch())
        .count();
}

void Watch(emulator::Line& line, std::vector<FrameSeen>& frames) {
    line.OnReceive([&frames](Bytes& b) { frames.push_back({true, b.size(), NowMs()}); });
    line.OnSend([&frames](Bytes& b) { frames.push_back({false, b.size(), NowMs()}); });
}

}  // namespace

double ServedRun::LineMs() const {
    const double bytes = static_cast<double>(counters.bytesIn + counters.bytesOut);
    return bytes * byteMs / static_cast<double>(series.runs.size());
}

Rig::Rig(WireFamily family) : family_(family) {
    Write("/etc/voltis/voltis.ini",
          std::string("[VOLTIS]\nComNumber=1\nResultFileName=result.txt\nDbgErrorLog=2\n") +
              "ProtocolFormatting=" + (family == WireFamily::Margay ? "1\n" : "0\n"));
}

template <typename Action>
ServedRun Rig::Serve(const std::string& commands, Action action) const {
    Write(commandFile, commands);
    emulator::Register device(RegisterFor(family_));
    emulator::Line line(family_, device);
    ServedRun run;
    if (noteFrames_) Watch(line, run.frames);
    emulator::PtyOptions options;
    options.link = "/dev/ttyS0";
    options.bitsPerSecond = paced_ ? 19200 : 0;
    emulator::PtyServer server(line, options);
    std::thread service([&server] { server.Run(); });
    try {
        action(run);
    } catch (...) {
        server.Stop();
        service.join();
        throw;
    }
    server.Stop();
    service.join();
    run.counters = line.Counters();
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
