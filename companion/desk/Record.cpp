// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/desk/Record.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "companion/desk/Json.h"

namespace desk {

namespace {

using emulator::Fate;
using emulator::FrameKind;

// In the order of the enumerations; docs/schemas/emulate-journal.schema.json has the same words.
constexpr const char* frameWords[] = {"request",    "data",     "eof",    "answer",
                                      "unreadable", "response", "status", "status-eof"};
constexpr const char* fateWords[] = {"passed", "lost", "corrupted", "cut", "nak", "busy"};

template <typename Value>
std::size_t Index(Value value) {
    return static_cast<std::size_t>(value);
}

// "2026-11-22T14:51:07.123Z"
std::string Now() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    gmtime_r(&now.tv_sec, &parts);
    char day[32] = "";
    strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &parts);
    char text[48] = "";
    std::snprintf(text, sizeof text, "%s.%03ldZ", day, now.tv_nsec / 1'000'000);
    return text;
}

std::string HexText(emulator::View bytes) {
    std::string text;
    for (const std::uint8_t byte : bytes) {
        char code[4] = "";
        std::snprintf(code, sizeof code, text.empty() ? "%02x" : " %02x", byte);
        text += code;
    }
    return JsonQuoted(text);
}

// A program was killed, or the disk was full, in the middle of a line.
bool EndsInALine(const std::string& path) {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size == 0) return false;
    std::ifstream file(path, std::ios::binary);
    file.seekg(-1, std::ios::end);
    const int last = file.get();
    return file && last != '\n';
}

// Waits for nothing: a pipe that no program reads would be waited for without an end.
int OpenForLines(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NONBLOCK, 0666);
    if (fd == -1)
        throw std::runtime_error(
            "cannot write '" + path +
            "': " + (errno == ENXIO ? "no program reads this pipe" : std::strerror(errno)));
    fcntl(fd, F_SETFL, O_APPEND);  // lines are written whole, however slowly they are read
    return fd;
}

std::string Member(const char* name, const std::string& text) {
    return std::string(", \"") + name + "\": " + JsonQuoted(text);
}

std::string QuotedList(const std::vector<std::string>& texts) {
    std::string list;
    for (const std::string& text : texts) list += (list.empty() ? "" : ", ") + JsonQuoted(text);
    return "[" + list + "]";
}

}  // namespace

Record::Record(std::string path) : path_(std::move(path)), fd_(OpenForLines(path_)) {
    afterHalfALine_ = EndsInALine(path_);
}

Record::~Record() {
    close(fd_);
}

void Record::Write(const char* event, const std::string& members) const {
    WriteLine("{\"time\": \"" + Now() + "\", \"event\": \"" + event + "\"" + members + "}\n");
}

void Record::WriteLine(const std::string& line) const {
    for (std::size_t at = 0; at < line.size();) {
        const ssize_t size = write(fd_, line.data() + at, line.size() - at);
        if (size < 0 && errno == EINTR) continue;
        if (size <= 0) {
            const std::string reason = std::strerror(errno);
            throw std::runtime_error("cannot write '" + path_ + "': " + reason +
                                     (TakeBack(at) ? "" : "; its last line is not whole"));
        }
        at += static_cast<std::size_t>(size);
    }
}

// What was written of a line that cannot be ended. False: it is no file, or another program has
// added something since.
bool Record::TakeBack(std::size_t written) const {
    if (written == 0) return true;
    const off_t end = lseek(fd_, 0, SEEK_CUR);
    struct stat info {};
    if (end == -1 || fstat(fd_, &info) != 0 || info.st_size != end) return false;
    return ftruncate(fd_, end - static_cast<off_t>(written)) == 0;
}

void Record::Start(const emulator::RegisterConfig& config, emulator::WireFamily frames) {
    std::vector<std::string> habits;
    for (const emulator::HabitRow& row : emulator::HabitTable())
        if (config.habits.Has(row.habit)) habits.emplace_back(row.word);
    if (std::exchange(afterHalfALine_, false)) WriteLine("\n");
    Write("start",
          Member("model", std::string(config.model->name)) +
              ", \"protocol\": " + std::to_string(config.model->version) +
              Member("frames", frames == emulator::WireFamily::Margay ? "margay" : "ocelot") +
              ", \"habits\": " + QuotedList(habits) +
              ", \"strict\": " + (config.strict ? "true" : "false"));
}

void Record::Frame(FrameKind kind, emulator::View bytes, Fate fate) const {
    Write("frame", Member("direction", ToRegister(kind) ? "in" : "out") +
                       Member("frame", frameWords[Index(kind)]) + ", \"bytes\": " + HexText(bytes) +
                       Member("fate", fateWords[Index(fate)]));
}

void Record::Command(const emulator::Acted& acted) const {
    Write("command", Member("command", std::string(emulator::CommandName(acted.command))) +
                         ", \"code\": " + std::to_string(acted.command) +
                         ", \"number\": " + std::to_string(acted.sequence) +
                         ", \"payload\": " + HexText(acted.payload) +
                         ", \"accepted\": " + (acted.accepted ? "true" : "false") +
                         ", \"result\": " + std::to_string(acted.result));
}

void Record::Printed(const std::string& line) const {
    Write("printed", Member("line", line));
}

void Record::Fault(const std::string& fault) const {
    Write("fault", Member("fault", fault));
}

void Record::Over(const std::string& fault) const {
    Write("over", Member("fault", fault));
}

void Record::Complaint(const std::string& complaint) const {
    Write("complaint", Member("complaint", complaint));
}

void Record::Typed(const std::string& line) const {
    Write("typed", Member("line", line));
}

void Record::Stop(const std::vector<std::string>& waiting) const {
    Write("stop", ", \"waiting\": " + QuotedList(waiting));
}

}  // namespace desk
