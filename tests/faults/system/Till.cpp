#include "tests/faults/system/Till.h"

#include <filesystem>

#include "tests/support/Sandbox.h"

namespace fs = std::filesystem;

namespace faults {

namespace {

constexpr char resultFile[] = "result.txt";
constexpr char marker[] = "voltis.started.tmp";
// Long enough for a busy machine, and two of the device's units.
constexpr char timeOut[] = "200";

}  // namespace

const char Till::shortSale[] =
    "SALE: DEPTNR=1; NAME=Tea; PRICE=2.50; QNTY=2\n"
    "DISCOUNT: PERCENTS=10; TYPE=SALE\n"
    "TENDER: MEDIA=CASH; AMOUNT=5.00\n";

Till::Till(emulator::WireFamily family, const std::string& commands)
    : ini_({{"ComNumber", "1"},
            {"ProtocolFormatting", family == emulator::WireFamily::Margay ? "1" : "0"},
            {"ResultFileName", resultFile},
            {"StandardLog", "1"},
            {"DbgErrorLog", "2"},
            {"CmdTimeout_Default", timeOut},
            {"CmdTimeout_Tender", timeOut},
            {"CmdTimeout_Report", timeOut}}) {
    for (const char* name : {"work", "log", "etc"}) fs::create_directory(folder_.File(name));
    folder_.Write("work/cmd.txt", commands);
}

Till& Till::Ini(const std::string& key, const std::string& value) {
    ini_[key] = value;
    return *this;
}

Told Till::Run(FaultyPort& port) {
    std::string text = "[VOLTIS]\n";
    for (const auto& [key, value] : ini_) text += key + "=" + value + "\n";
    folder_.Write("etc/voltis.ini", text);
    if (fs::is_regular_file(Work(resultFile))) fs::remove(Work(resultFile));

    SandboxOptions options;
    options.configDir = folder_.File("etc");
    options.logDir = folder_.File("log");
    options.workDir = folder_.File("work");
    options.bwrapArguments = {"--dev-bind", port.DevicePath(), "/dev/ttyS0"};
    options.bwrapArguments.insert(options.bwrapArguments.end(), sandbox.begin(), sandbox.end());
    std::vector<std::string> command = wrapper;
    command.insert(command.end(), {VOLTIS_PATH, "cmd.txt"});

    Told told;
    const auto begin = std::chrono::steady_clock::now();
    SandboxedProgram program(command, options);
    told.inTime = port.Serve(program.Pid(), longestRun);
    if (told.inTime) {
        const ProgramResult end = program.Wait();
        told.exitCode = end.exitCode;
        told.complaint = end.err;
    }
    told.took = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - begin);
    if (fs::is_regular_file(Work(resultFile))) told.result = ReadWholeFile(Work(resultFile));
    told.stdLog = ReadWholeFile(Log("voltis.log"));
    told.dbgLog = ReadWholeFile(Log("dbgerror.log"));
    told.markerLeft = fs::exists(Work(marker));
    return told;
}

std::string ResultValue(const std::string& result, const std::string& name) {
    const std::size_t begin = result.find("\n" + name + "=");
    if (begin == std::string::npos) return "";
    const std::size_t value = begin + name.size() + 2;
    return result.substr(value, result.find('\n', value) - value);
}

}  // namespace faults
