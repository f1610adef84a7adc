// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/Profile.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <filesystem>
#include <sstream>
#include <system_error>

#include "companion/runner/Files.h"
#include "companion/runner/IniText.h"

namespace fs = std::filesystem;

namespace runner {

namespace {

constexpr char section[] = "VOLTIS";
constexpr char fileEnding[] = ".ini";
constexpr char privateResult[] = "result.txt";
constexpr char endOfFileMark = 26;  // the driver reads no further

[[noreturn]] void Fail(const std::string& file, const std::string& what) {
    throw ProfileError("'" + file + "': " + what);
}

// --- names -----------------------------------------------------------------------------------

bool IsNameLetter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_' || c == '.';
}

std::string DefaultFile(const std::string& folder) {
    return folder + "/voltis.ini";
}

std::string RegistersFolder(const std::string& folder) {
    return folder + "/registers";
}

std::string FileOf(const std::string& folder, const std::string& name) {
    if (!IsRegisterName(name)) {
        throw ProfileError("'" + name +
                           "' is no name of a register: it may have letters, digits, '-', '_' and "
                           "'.', and begins with no '.'");
    }
    if (name == defaultRegister) return DefaultFile(folder);
    return RegistersFolder(folder) + "/" + name + fileEnding;
}

// What follows the last slash, as the driver has it.
std::string NameOf(const std::string& path) {
    const std::size_t slash = path.find_last_of("/\\");
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    return name == "." || name == ".." ? "" : name;  // folders: the driver cannot write them
}

// --- keys ------------------------------------------------------------------------------------

std::string Capitals(std::string text) {
    for (char& c : text) {
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    }
    return text;
}

std::vector<std::string> WordsOf(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> words;
    for (std::string word; in >> word;) words.push_back(word);
    return words;
}

bool YesOrNo(const Profile& profile, const IniText& ini, const char* key, bool defaultValue) {
    const std::string value = ini.Get(key);
    if (value.empty()) return defaultValue;
    if (strcasecmp(value.c_str(), "yes") == 0) return true;
    if (strcasecmp(value.c_str(), "no") == 0) return false;
    Fail(profile.file, std::string(key) + "=" + value + ": it is either yes or no");
}

// A key of ours; other than in the driver's keys, what is no number is a mistake.
int Days(const Profile& profile, const IniText& ini, const char* key, int defaultValue) {
    constexpr std::size_t mostDigits = 6;
    const std::string value = ini.Get(key);
    if (value.empty()) return defaultValue;
    const bool digits = value.find_first_not_of("0123456789") == std::string::npos;
    if (!digits || value.size() > mostDigits)
        Fail(profile.file, std::string(key) + "=" + value + ": it is a number of days");
    return std::stoi(value);
}

void ReadDriversKeys(Profile& profile, const IniText& ini) {
    profile.protocolFormatting = ini.Number("ProtocolFormatting", 0);
    profile.networkId = ini.Number("NetworkID", 1);
    const std::string codePage = Capitals(ini.Get("CodePage"));
    profile.codePage = codePage.empty() ? "RIM" : codePage;
    profile.resultFileName = NameOf(ini.Get("ResultFileName"));
    profile.oldResultFileFormat = ini.Number("OldResultFileFormat", 0) == 1;
    profile.standardLog = ini.Number("StandardLog", 0);
    profile.dbgErrorLog = ini.Number("DbgErrorLog", 0);
    profile.keepEcrBlocked = ini.Number("KeepEcrBlocked", 0) != 0;
}

void ReadOwnKeys(Profile& profile, const IniText& ini) {
    profile.sandbox = YesOrNo(profile, ini, "Sandbox", true);
    if (!profile.IsDefault() && !ini.Get("Sandbox").empty())
        Fail(profile.file, "Sandbox= belongs into voltis.ini: it holds for the machine");
    profile.habit = WordsOf(ini.Get("Habit"));
    profile.journalDays = Days(profile, ini, "JournalDays", profile.journalDays);
}

// --- the device ------------------------------------------------------------------------------

std::string PortOf(const Profile& profile, const IniText& ini) {
    const int number = ini.Number("ComNumber", 0);
    if (number < 1) Fail(profile.file, "neither Device= nor ComNumber= says where the register is");
    return "/dev/ttyS" + std::to_string(number - 1);
}

std::string CheckedDevice(const Profile& profile, const std::string& device) {
    if (device[0] != '/')
        Fail(profile.file, "Device=" + device + ": it is a path that begins at /");
    if (!profile.sandbox) {
        Fail(profile.file,
             "Device= and Sandbox=no exclude each other: in place the driver opens the port of "
             "ComNumber=");
    }
    return device;
}

// Where both keys are, the driver looks at nothing else.
bool IsOnNetwork(const IniText& ini) {
    return !ini.Get("IpAddress").empty() && !ini.Get("UdpPort").empty();
}

std::string DeviceOf(const Profile& profile, const IniText& ini) {
    const std::string device = ini.Get("Device");
    if (!device.empty()) return CheckedDevice(profile, device);
    if (!profile.IsDefault()) Fail(profile.file, "Device= is missing");
    return PortOf(profile, ini);
}

void ReadPlace(Profile& profile, const IniText& ini) {
    if (IsOnNetwork(ini)) {
        profile.network = ini.Get("IpAddress") + ":" + ini.Get("UdpPort");
    } else {
        profile.device = DeviceOf(profile, ini);
    }
}

// --- files -----------------------------------------------------------------------------------

std::string TextOf(const std::string& file) {
    std::error_code error;
    const fs::file_status status = fs::status(file, error);
    if (!fs::exists(status) && error && error != std::errc::no_such_file_or_directory)
        Fail(file, "it cannot be read - " + error.message());
    if (!fs::exists(status)) Fail(file, "there is no such file");
    if (!fs::is_regular_file(status)) Fail(file, "it is no regular file");
    try {
        return ReadFile(file);
    } catch (const std::runtime_error& failure) {
        throw ProfileError(failure.what());
    }
}

IniText Parsed(const Profile& profile) {
    try {
        return {profile.text, section};
    } catch (const std::runtime_error& wrong) {
        Fail(profile.file, wrong.what());
    }
}

Profile Read(const std::string& name, const std::string& file) {
    Profile profile;
    profile.name = name;
    profile.file = file;
    profile.text = TextOf(file);
    const IniText ini = Parsed(profile);
    ReadDriversKeys(profile, ini);
    ReadOwnKeys(profile, ini);
    ReadPlace(profile, ini);
    return profile;
}

std::vector<std::string> OtherNames(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code none;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, none)) {
        const std::string name = entry.path().stem();
        if (entry.path().extension() == fileEnding && IsRegisterName(name)) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

// Nothing that leads to another folder, or to a file that ls does not show.
bool IsRegisterName(const std::string& name) {
    return !name.empty() && name[0] != '.' && std::all_of(name.begin(), name.end(), IsNameLetter);
}

Profile LoadProfile(const std::string& folder, const std::optional<std::string>& name) {
    const std::string chosen = name.value_or(defaultRegister);
    return Read(chosen, FileOf(folder, chosen));
}

std::vector<std::string> RegisterNames(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code ignored;
    if (fs::exists(DefaultFile(folder), ignored)) names.push_back(defaultRegister);
    for (const std::string& name : OtherNames(RegistersFolder(folder))) {
        if (name == defaultRegister) {
            Fail(RegistersFolder(folder) + "/" + name + fileEnding,
                 "the register of voltis.ini has this name; give it another one");
        }
        names.push_back(name);
    }
    return names;
}

std::vector<Profile> AllProfiles(const std::string& folder) {
    std::vector<Profile> profiles;
    for (const std::string& name : RegisterNames(folder))
        profiles.push_back(LoadProfile(folder, name));
    if (profiles.empty()) Fail(DefaultFile(folder), "there is no such file, and no other register");
    return profiles;
}

std::string PrivateResultName(const Profile& profile) {
    return profile.resultFileName.empty() ? privateResult : profile.resultFileName;
}

// The driver takes the last of several lines with the same key, in all parts of its section.
std::string PrivateIni(const Profile& profile) {
    return profile.text.substr(0, profile.text.find(endOfFileMark)) + "\n[" + section +
           "]\nComNumber=1\nResultFileName=" + PrivateResultName(profile) +
           "\nStandardLog=1\nDbgErrorLog=2\n";
}

}  // namespace runner
