#include "tests/support/Shop.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <thread>

#include "tests/support/Sandbox.h"

namespace fs = std::filesystem;
using emulator::PtyServer;
using emulator::RegisterConfig;
using emulator::WireFamily;

namespace {

constexpr char resultFile[] = "result.txt";

/// The register at work, in a thread of its own.
class Service {
  public:
    explicit Service(PtyServer& server) : server_(server), thread_([&server] { server.Run(); }) {}
    ~Service() {
        // One more look at the line lies between the two posts: the driver's closing of it counts.
        server_.Post([this] { server_.Post([this] { server_.Stop(); }); });
        thread_.join();
        server_.ResetSettings();
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

  private:
    PtyServer& server_;
    std::thread thread_;
};

template <typename Item>
std::vector<Item> Since(const std::vector<Item>& all, std::size_t begin) {
    return {all.begin() + static_cast<std::ptrdiff_t>(begin), all.end()};
}

}  // namespace

RegisterConfig RegisterOf(std::string_view model, std::uint8_t version) {
    RegisterConfig config;
    config.model = emulator::FindModel(model, version);
    if (config.model == nullptr) throw std::invalid_argument("no model " + std::string(model));
    return config;
}

Shop::Shop(std::string_view model, std::uint8_t version) : Shop(RegisterOf(model, version)) {}

Shop::Shop(RegisterConfig config) : Shop(config, config.model->family) {}

Shop::Shop(RegisterConfig config, WireFamily family)
    : ini_({{"ComNumber", "1"},
            {"ProtocolFormatting", family == WireFamily::Margay ? "1" : "0"},
            {"ResultFileName", resultFile},
            {"StandardLog", "1"},
            {"DbgErrorLog", "2"}}),
      workDir_(folder_.Path()),
      device_(std::move(config)),
      line_(family, device_),
      server_(line_) {}

Shop& Shop::Ini(const std::string& key, const std::string& value) {
    ini_.value()[key] = value;
    return *this;
}

Shop& Shop::WithoutIni(const std::string& key) {
    ini_.value().erase(key);
    return *this;
}

Shop& Shop::WithoutIniFile() {
    ini_.reset();
    return *this;
}

Shop& Shop::WorkIn(const std::string& folder) {
    workDir_ = fs::path(folder_.Path()) / folder;
    return *this;
}

Shop& Shop::Sandbox(const std::vector<std::string>& bwrapArguments) {
    bwrapArguments_ = bwrapArguments;
    return *this;
}

Shop& Shop::StartBy(const std::string& script) {
    startScript_ = script;
    return *this;
}

void Shop::WriteIni() const {
    fs::remove(config_.File("voltis.ini"));
    if (!ini_) return;
    std::string text = "[VOLTIS]\n";
    for (const auto& [key, value] : *ini_) text += key + "=" + value + "\n";
    config_.Write("voltis.ini", text);
}

RunOutcome Shop::RunServed(const std::vector<std::string>& command) {
    SandboxOptions options;
    options.configDir = config_.Path();
    options.logDir = logs_.Path();
    options.workDir = workDir_;
    options.bwrapArguments = {"--dev-bind", server_.SlavePath(), "/dev/ttyS0"};
    options.bwrapArguments.insert(options.bwrapArguments.end(), bwrapArguments_.begin(),
                                  bwrapArguments_.end());
    const Service service(server_);
    const ProgramResult program = RunInSandbox(command, options);
    EXPECT_EQ(program.err, "");
    RunOutcome outcome;
    outcome.exitCode = program.exitCode;
    outcome.out = program.out;
    return outcome;
}

RunOutcome Shop::Run(const std::vector<std::string>& arguments) {
    WriteIni();
    if (fs::is_regular_file(folder_.File(resultFile))) fs::remove(folder_.File(resultFile));
    const std::size_t linesBefore = device_.Paper().Lines().size();
    const std::size_t judgedBefore = device_.Journal().size();

    std::vector<std::string> command = {"sh", "-c", startScript_, "sh", VOLTIS_PATH};
    command.insert(command.end(), arguments.begin(), arguments.end());
    RunOutcome outcome = RunServed(command);

    if (fs::is_regular_file(folder_.File(resultFile)))
        outcome.result = ReadWholeFile(folder_.File(resultFile));
    outcome.stdLog = ReadWholeFile(logs_.File("voltis.log"));
    outcome.dbgLog = ReadWholeFile(logs_.File("dbgerror.log"));
    outcome.tape = Since(device_.Paper().Lines(), linesBefore);
    outcome.journal = Since(device_.Journal(), judgedBefore);
    return outcome;
}

RunOutcome Shop::Execute(const std::string& commands) {
    folder_.Write("cmd.txt", commands);
    return Run({"cmd.txt"});
}
