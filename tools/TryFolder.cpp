#include "tools/TryFolder.h"

#include <stdlib.h>
#include <strings.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

[[noreturn]] void FailOn(const char* verb, const std::string& path) {
    const std::string reason = std::strerror(errno);
    throw std::runtime_error(std::string("cannot ") + verb + " '" + path + "' - " + reason);
}

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

void WriteFile(const std::string& path, const std::string& bytes) {
    const File file(std::fopen(path.c_str(), "wbe"));
    if (!file) FailOn("write", path);
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
    if (!written || std::fflush(file.get()) != 0) FailOn("write", path);
}

std::string MakeTemporaryFolder() {
    std::string path = (fs::temp_directory_path() / "voltisctl-XXXXXX").string();
    if (mkdtemp(path.data()) == nullptr) FailOn("make folder", path);
    return path;
}

// What follows the last slash; the driver uses no more than that of its ResultFileName.
std::string NameOf(const std::string& path) {
    const size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The place of the key, or the end.
template <typename Entries>
auto Find(Entries& entries, const std::string& key) {
    return std::find_if(entries.begin(), entries.end(), [&](const auto& entry) {
        return strcasecmp(entry.key.c_str(), key.c_str()) == 0;
    });
}

bool Exists(const std::string& path) {
    std::error_code ignored;
    return fs::is_regular_file(path, ignored);
}

}  // namespace

std::string ReadFile(const std::string& path) {
    const File file(std::fopen(path.c_str(), "rbe"));
    if (!file) FailOn("read", path);
    std::string all;
    char block[4096];
    for (size_t count = 0; (count = std::fread(block, 1, sizeof block, file.get())) > 0;) {
        all.append(block, count);
    }
    if (std::ferror(file.get()) != 0) FailOn("read", path);
    return all;
}

void DriverSettings::Set(const std::string& key, const std::string& value) {
    const auto old = Find(entries_, key);
    if (old != entries_.end()) {
        old->value = value;
    } else {
        entries_.push_back({key, value});
    }
}

void DriverSettings::Set(const std::string& keyAndValue) {
    const size_t equals = keyAndValue.find('=');
    const bool oneLine = keyAndValue.find_first_of("\r\n\f\x1a") == std::string::npos;
    const bool aKey = equals != std::string::npos && equals > 0 && keyAndValue[0] != '[';
    if (!aKey || !oneLine) throw std::runtime_error("'" + keyAndValue + "' is not KEY=VALUE");
    Set(keyAndValue.substr(0, equals), keyAndValue.substr(equals + 1));
}

std::string DriverSettings::Get(const std::string& key) const {
    const auto entry = Find(entries_, key);
    return entry == entries_.end() ? "" : entry->value;
}

std::string DriverSettings::Text() const {
    std::string text = "[VOLTIS]\n";
    for (const Entry& entry : entries_) text += entry.key + "=" + entry.value + "\n";
    return text;
}

TryFolder::TryFolder(const DriverSettings& settings) : path_(MakeTemporaryFolder()) {
    fs::create_directory(Files());
    fs::create_directory(Logs());
    WriteFile(Ini(), settings.Text());
    const std::string name = NameOf(settings.Get("ResultFileName"));
    if (!name.empty()) resultFile_ = Files() + "/" + name;
}

TryFolder::~TryFolder() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::string TryFolder::Take(const std::string& commandFile) {
    std::string name = fs::path(commandFile).filename().string();
    std::replace(name.begin(), name.end(), '\\', '_');
    const std::string bytes = ReadFile(commandFile);
    std::error_code ignored;
    if (!resultFile_.empty()) fs::remove(resultFile_, ignored);
    oldLog_ = Exists(LogFile()) ? ReadFile(LogFile()) : "";
    WriteFile(Files() + "/" + name, bytes);
    return name;
}

std::string TryFolder::Result() const {
    return !resultFile_.empty() && Exists(resultFile_) ? ReadFile(resultFile_) : "";
}

std::string TryFolder::NewLog() const {
    const std::string log = Exists(LogFile()) ? ReadFile(LogFile()) : "";
    return log.size() > oldLog_.size() ? log.substr(oldLog_.size()) : "";
}
