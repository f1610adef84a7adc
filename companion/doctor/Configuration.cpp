// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/doctor/Configuration.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <map>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "Common.h"
#include "DriverException.h"
#include "EcrModel.h"
#include "Linux/ComPort.h"
#include "ProtocolFormatting.h"
#include "companion/doctor/Keys.h"
#include "companion/runner/CodePage.h"
#include "companion/runner/IniText.h"
#include "companion/verdict/Promises.h"

namespace doctor {

namespace {

constexpr char section[] = "VOLTIS";

std::string Lowered(std::string_view name) {
    return ToLower(std::string(name));
}

// One file while it is looked at.
class Text {
  public:
    Text(std::string file, const std::string& text)
        : ini_(text, section), lines_(ini_.Lines()), file_(std::move(file)) {}

    const runner::IniText& Ini() const { return ini_; }
    const std::vector<IniStoreLine>& Lines() const { return lines_; }

    static bool IsIn(const IniStoreLine& line) { return Lowered(line.section) == "voltis"; }

    /// The line that counts for the key; 0: there is none.
    std::size_t LineOf(std::string_view key) const {
        const std::string name = Lowered(key);
        std::size_t number = 0;
        for (const IniStoreLine& line : lines_) {
            if (IsIn(line) && Lowered(line.key) == name) number = line.number;
        }
        return number;
    }
    /// The line is there, and says anything else than what counts without it: the installed
    /// configuration has every key with its default.
    bool Has(std::string_view key) const { return LineOf(key) != 0 && !IsDefault(key); }

    void Add(Severity severity, const char* code, std::size_t line, const std::string& message,
             const std::string& remedy) {
        findings_.push_back({severity, code, message, remedy, file_, line});
    }
    void AddAt(std::string_view key, Severity severity, const char* code,
               const std::string& message, const std::string& remedy) {
        Add(severity, code, LineOf(key), message, remedy);
    }
    /// "NetworkID=300" for messages: values of keys that hold a number only.
    std::string Said(const std::string& key) const { return key + "=" + Private(ini_.Get(key)); }

    Findings Take() { return std::move(findings_); }

  private:
    bool IsDefault(std::string_view name) const {
        const Key* key = FindKey(name);
        const int* number = key == nullptr ? nullptr : std::get_if<int>(&key->defaultValue);
        return number != nullptr && ini_.Get(std::string(name)) == std::to_string(*number);
    }

    runner::IniText ini_;
    std::vector<IniStoreLine> lines_;
    std::string file_;
    Findings findings_;
};

// --- keys by themselves -------------------------------------------------------------------------

// There are no comments, but what looks like one is meant to be ignored.
bool LooksLikeComment(std::string_view key) {
    return key.starts_with(';') || key.starts_with('#') || key.starts_with("//");
}

void CheckSection(Text& text, const IniStoreLine& line) {
    if (FindKey(line.key) == nullptr) return;
    const std::string place = line.section.empty()
                                  ? "above the first section"
                                  : "in section [" + Private(std::string(line.section)) + "]";
    text.Add(Severity::Warning, "other-section", line.number,
             std::string(FindKey(line.key)->name) + "= is " + place +
                 ": the driver reads only section [VOLTIS]",
             "Move the line below [VOLTIS], or remove it.");
}

void CheckKnown(Text& text, const IniStoreLine& line) {
    if (LooksLikeComment(line.key) || FindKey(line.key) != nullptr) return;
    const std::string nearest = NearestKey(line.key);
    const std::string remedy = nearest.empty() ? "Remove the line; docs/reference.md has all keys."
                                               : "Perhaps " + nearest + "= is meant.";
    text.Add(Severity::Warning, "unknown-key", line.number,
             Quoted(std::string(line.key)) + " is no key: the line has no effect", remedy);
}

void CheckNames(Text& text) {
    for (const IniStoreLine& line : text.Lines())
        Text::IsIn(line) ? CheckKnown(text, line) : CheckSection(text, line);
}

// The last line counts, in all parts of the section.
void CheckRepeated(Text& text) {
    std::set<std::string> seen;
    for (const IniStoreLine& line : text.Lines()) {
        const Key* key = FindKey(line.key);
        if (!Text::IsIn(line) || key == nullptr || seen.insert(Lowered(line.key)).second) continue;
        if (line.number != text.LineOf(line.key)) continue;
        text.Add(Severity::Warning, "repeated-key", line.number,
                 std::string(key->name) + "= is there more than once: this last line counts",
                 "Remove the others.");
    }
}

bool BeginsWithNumber(const std::string& value) {
    const std::size_t sign = value.starts_with('-') || value.starts_with('+') ? 1 : 0;
    return value.size() > sign && value[sign] >= '0' && value[sign] <= '9';
}

void CheckNumber(Text& text, const std::string& key) {
    const std::string value = text.Ini().Get(key);
    const std::size_t sign = value.starts_with('-') || value.starts_with('+') ? 1 : 0;
    if (!BeginsWithNumber(value)) {
        text.AddAt(key, Severity::Warning, "no-number",
                   text.Said(key) + " is no number: the default counts", "Write a number.");
    } else if (value.find_first_not_of("0123456789", sign) != std::string::npos) {
        text.AddAt(key, Severity::Note, "number-and-more",
                   text.Said(key) + ": only the number at its beginning counts",
                   "Write the number alone.");
    }
}

void CheckNumbers(Text& text) {
    for (const Key& key : AllKeys()) {
        if (key.kind == KeyKind::Number && text.Has(key.name))
            CheckNumber(text, std::string(key.name));
    }
}

void CheckNoEffect(Text& text) {
    for (const Key& key : AllKeys()) {
        if (key.kind == KeyKind::NoEffect && text.Has(key.name)) {
            text.AddAt(key.name, Severity::Note, "no-effect",
                       std::string(key.name) + "= has no effect", "The line can be removed.");
        }
    }
}

// --- time-outs and pauses -----------------------------------------------------------------------

constexpr int msPerTenth = 100;

// What the port makes of a time-out: tenths of a second in one byte.
int TenthsOf(std::uint32_t ms) {
    return static_cast<std::uint8_t>(ms / msPerTenth);
}

// As the link adds the time that the model needs for its journal.
std::uint32_t GrownBy(int timeout, int flushMs) {
    return static_cast<std::uint32_t>(timeout) + static_cast<std::uint32_t>(flushMs);
}

std::string Seconds(double seconds) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f s", seconds);
    return text.data();
}

struct Wait {
    bool right = true;  // as long as it says
    int tenths = 0;
    double meant = 0;  // s
};

Wait WaitOf(int timeout, int flushMs) {
    const std::uint32_t ms = GrownBy(timeout, flushMs);
    const int tenths = TenthsOf(ms);
    const bool right = tenths != 0 && ms / msPerTenth == static_cast<std::uint32_t>(tenths);
    return {right, tenths, ms / 1000.0};
}

constexpr char timeoutRemedy[] =
    "Values from 100 to 19500 wait as long as they say on every model.";

void ReportWait(Text& text, const char* key, const Wait& wait, const std::string& when) {
    if (wait.right) return;
    const std::string meant = when + ", not " + Seconds(wait.meant);
    if (wait.tenths == 0) {
        text.AddAt(key, Severity::Error, "timeout-zero",
                   text.Said(key) + " does not wait for an answer at all" + when, timeoutRemedy);
    } else {
        text.AddAt(key, Severity::Warning, "timeout-wraps",
                   text.Said(key) + " waits " + Seconds(wait.tenths / 10.0) + meant, timeoutRemedy);
    }
}

// A Lynx adds nothing, and neither does the driver before it knows the model.
void CheckTimeout(Text& text, const char* key) {
    if (!text.Has(key) || !BeginsWithNumber(text.Ini().Get(key))) return;
    const int timeout = text.Ini().Number(key, 0);
    const bool first = std::string_view(key) == "CmdTimeout_Default";
    const Wait alone = WaitOf(timeout, ecrLynx_JournalFlushTimeInMs);
    const Wait grown = WaitOf(timeout, ecrOcelot_JournalFlushTimeInMs);
    if (first || alone.tenths != grown.tenths)
        ReportWait(text, key, alone, first ? " when it connects, and on a Lynx" : " on a Lynx");
    ReportWait(text, key, grown, " on models but the Lynx");
}

void CheckCharacterTimes(Text& text) {
    constexpr double msPerCharacter = 11 * 1000.0 / 19200;
    constexpr double wrapsAt = (std::numeric_limits<std::uint8_t>::max() + 1) * msPerTenth;
    const double ms = text.Ini().Number("ComByteTimeMult", 0) * msPerCharacter;
    if (ms < wrapsAt) return;
    text.AddAt("ComByteTimeMult", Severity::Warning, "timeout-wraps",
               text.Said("ComByteTimeMult") +
                   " wraps: the time-out between two bytes is kept in tenths of a second in one "
                   "byte",
               "Remove the line: the default of 55 is right for every register.");
}

// Sleep's rule: hundredths of a second below 100, and mostly nothing above.
void CheckPause(Text& text, const char* key) {
    if (!text.Has(key)) return;
    const int pause = text.Ini().Number(key, 0);
    constexpr std::uint32_t nsPerSecond = 1'000'000'000;
    constexpr double nsPerMs = 1e6;
    const std::uint32_t ns = SleepNanoseconds(static_cast<unsigned>(pause));
    if (pause == 0) return;
    if (ns == 0 || ns >= nsPerSecond) {
        text.AddAt(key, Severity::Warning, "pause-zero", text.Said(key) + " does not pause at all",
                   "A pause of n below 100 waits n x 10 ms: 20 waits 200 ms.");
    } else {
        text.AddAt(key, Severity::Note, "pause-unit",
                   text.Said(key) + " pauses " + Seconds(ns / nsPerMs / 1000.0) +
                       ": it is not milliseconds",
                   "Nothing, when that is meant.");
    }
}

void CheckTimes(Text& text) {
    for (const char* key : {"CmdTimeout_Default", "CmdTimeout_Tender", "CmdTimeout_Report"})
        CheckTimeout(text, key);
    CheckCharacterTimes(text);
    for (const char* key : {"NakSleepTime", "GarbageSleepTime"}) CheckPause(text, key);
}

// --- values -------------------------------------------------------------------------------------

void CheckRetries(Text& text) {
    for (const char* key : {"LostResponseRetryCount", "NakRetryCount", "GarbageRetryCount"}) {
        if (text.Ini().Number(key, 0) >= 0) continue;
        const bool always = std::string_view(key) == "LostResponseRetryCount";
        text.AddAt(key, always ? Severity::Error : Severity::Warning, "negative-retries",
                   text.Said(key) + (always ? ": every command fails, answered or not"
                                            : ": the first trouble of any kind ends the run"),
                   "Write 0 for no repetition, or remove the line: the default is 3.");
    }
}

// The driver's own judgement.
bool TakesSettings(const std::string& settings) {
    try {
        ComPort_Setup(settings);
    } catch (DriverException* refusal) {
        delete refusal;
        return false;
    }
    return true;
}

void CheckSettingsWord(Text& text, const std::string& word) {
    const auto is = [&](const char* name) { return word.starts_with(name); };
    if (is("data=") || is("stop=") || is("parity=")) return;
    const bool sameSpeed = word == "baud=19200";
    const bool speed = is("baud=") && !sameSpeed;
    text.AddAt("ComSettings", speed ? Severity::Warning : Severity::Note, "no-effect",
               Quoted(word) + " in ComSettings= has no effect" +
                   (speed ? ": the line always runs at 19200 baud" : ""),
               speed ? "Set the register to 19200 baud." : "It can be removed.");
}

void CheckComSettings(Text& text) {
    const std::string settings = text.Ini().Get("ComSettings");
    if (!TakesSettings(settings)) {
        text.AddAt("ComSettings", Severity::Error, "bad-settings",
                   "the driver refuses " + text.Said("ComSettings"),
                   "Write data=7 or 8, stop=1 or 2, parity=o, e or n; registers use data=8 stop=1 "
                   "parity=o, which is the default.");
    }
    std::istringstream words(settings);
    for (std::string word; words >> word;) CheckSettingsWord(text, word);
}

void CheckEthernet(Text& text) {
    const bool address = !text.Ini().Get("IpAddress").empty();
    const bool port = !text.Ini().Get("UdpPort").empty();
    if (address && port) {
        text.AddAt("IpAddress", Severity::Error, "ethernet",
                   "IpAddress= and UdpPort= ask for Ethernet, which this version of the driver "
                   "does not have: every run ends with error 50",
                   "Remove both lines, and connect the register to a serial port.");
    } else if (address || port) {
        text.AddAt(address ? "IpAddress" : "UdpPort", Severity::Note, "ethernet-half",
                   std::string(address ? "IpAddress=" : "UdpPort=") +
                       " has no effect without its other half",
                   "The line can be removed.");
    }
}

void CheckFamily(Text& text) {
    const int number = text.Ini().Number("ProtocolFormatting", 0);
    if (number == ProtocolFormatting_Ocelot || number == ProtocolFormatting_Margay) return;
    text.AddAt("ProtocolFormatting", Severity::Error, "no-such-family",
               text.Said("ProtocolFormatting") + " is no frame family: every run ends with error 3",
               "Write 0 for Ocelot frames or 1 for Margay frames; --ask finds out which.");
}

void CheckNetworkId(Text& text) {
    const int number = text.Ini().Number("NetworkID", 1);
    if (number < 0 || number > std::numeric_limits<std::uint8_t>::max()) {
        text.AddAt("NetworkID", Severity::Warning, "network-id-wraps",
                   text.Said("NetworkID") + " goes out as " +
                       std::to_string(static_cast<std::uint8_t>(number)) +
                       ": an address is one byte",
                   "Write the register's own number, from 0 to 255; --ask finds it.");
    } else if (text.Has("NetworkID") &&
               text.Ini().Number("ProtocolFormatting", 0) == ProtocolFormatting_Margay) {
        text.AddAt("NetworkID", Severity::Note, "no-effect",
                   "NetworkID= has no effect in Margay frames", "The line can be removed.");
    }
}

void CheckCashier(Text& text) {
    const int number = text.Ini().Number("CashierNumber", 1);
    if (number >= 0 && number <= std::numeric_limits<std::uint8_t>::max()) return;
    text.AddAt("CashierNumber", Severity::Warning, "cashier-wraps",
               text.Said("CashierNumber") + " goes out as " +
                   std::to_string(static_cast<std::uint8_t>(number)) +
                   ", where the cashier system is on: a cashier is one byte",
               "Write the cashier's number in the register, from 0 to 255.");
}

void CheckCodePage(Text& text) {
    const std::string name = ToUpper(text.Ini().Get("CodePage"));
    if (!text.Has("CodePage")) return;
    try {
        runner::FromUtf8("", name);
    } catch (const runner::CodePageError&) {
        text.AddAt("CodePage", Severity::Error, "no-such-code-page",
                   text.Said("CodePage") + " is no code page: every run ends with exit code 2",
                   "Write RIM, DOS or TILDE, or remove the line: the default is RIM.");
    }
}

void CheckResultFile(Text& text, bool isDefault) {
    const std::string name = text.Ini().Get("ResultFileName");
    if (name.empty() && isDefault) {
        text.AddAt("ResultFileName", Severity::Note, "no-result-file",
                   "ResultFileName= is not configured: the driver tells nothing but its exit code",
                   "Write ResultFileName=result.txt.");
    } else if (name.find_first_of("/\\") != std::string::npos) {
        text.AddAt("ResultFileName", Severity::Note, "result-path",
                   "the path in ResultFileName= is ignored: the result is written beside the "
                   "command file",
                   "Write the name alone.");
    }
}

// --- keys of ours -------------------------------------------------------------------------------

void CheckHabit(Text& text) {
    try {
        verdict::PromisesOf(text.Ini().Get("Habit"));
    } catch (const std::runtime_error&) {
        text.AddAt("Habit", Severity::Error, "no-such-habit",
                   text.Said("Habit") + " has a word that is no habit of a register",
                   "`voltisctl doctor --habits` asks the register, and prints the right line.");
    }
}

void CheckInPlace(Text& text) {
    if (ToLower(text.Ini().Get("Sandbox")) != "no") return;
    if (text.Ini().Number("DbgErrorLog", 0) != 0 && text.Ini().Number("DbgErrorLog", 0) != 1)
        return;
    text.AddAt("Sandbox", Severity::Error, "in-place-without-log",
               "Sandbox=no needs DbgErrorLog=2: without the debug log `voltisctl run` cannot tell "
               "what was printed",
               "Write DbgErrorLog=2.");
}

void CheckAll(Text& text, bool isDefault) {
    CheckNames(text);
    CheckRepeated(text);
    CheckNumbers(text);
    CheckNoEffect(text);
    CheckTimes(text);
    CheckRetries(text);
    CheckComSettings(text);
    CheckEthernet(text);
    CheckFamily(text);
    CheckNetworkId(text);
    CheckCashier(text);
    CheckCodePage(text);
    CheckResultFile(text, isDefault);
    CheckHabit(text);
    CheckInPlace(text);
}

// --- the registers of a site --------------------------------------------------------------------

constexpr char profileRemedy[] =
    "Correct the file; docs/reference.md, \"Configuration\", has all keys.";

void CheckRegister(const std::string& folder, const std::string& name, Registers& all) {
    try {
        const runner::Profile profile = runner::LoadProfile(folder, name);
        Findings findings = CheckText(profile.file, profile.text, profile.IsDefault());
        for (Finding& finding : findings) finding.registerName = name;
        Append(all.findings, std::move(findings));
        all.profiles.push_back(profile);
    } catch (const runner::ProfileError& wrong) {
        all.findings.push_back(
            {Severity::Error, "profile", Private(wrong.what()), profileRemedy, {}, 0, name});
    }
}

void CheckSharedDevices(Registers& all) {
    std::map<std::string, std::string> owners;
    for (const runner::Profile& profile : all.profiles) {
        if (profile.device.empty()) continue;
        const auto [owner, isNew] = owners.try_emplace(profile.device, profile.name);
        if (isNew) continue;
        all.findings.push_back({Severity::Warning, "shared-device",
                                "register " + Quoted(owner->second) + " has the same device",
                                "Give each register the device that it is connected to.",
                                profile.file, 0, profile.name});
    }
}

}  // namespace

Findings CheckText(const std::string& file, const std::string& text, bool isDefault) {
    Text read(file, text);
    CheckAll(read, isDefault);
    return read.Take();
}

Registers CheckRegisters(const std::string& folder, const std::optional<std::string>& name) {
    Registers all;
    try {
        std::vector<std::string> names = runner::RegisterNames(folder);
        if (name) names = {*name};
        if (names.empty()) names = {runner::defaultRegister};  // of which it says what is missing
        for (const std::string& each : names) CheckRegister(folder, each, all);
    } catch (const runner::ProfileError& wrong) {
        all.findings.push_back({Severity::Error, "profile", Private(wrong.what()), profileRemedy});
    }
    CheckSharedDevices(all);
    return all;
}

}  // namespace doctor
