// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "bench/WholeRuns.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "bench/CommandFiles.h"
#include "bench/Rig.h"

namespace fs = std::filesystem;

namespace {

using emulator::WireFamily;

constexpr int receiptCommands = 200;
constexpr int plainStatusReads = 3;  // at connecting, after the last command, at the end

std::string NameOf(WireFamily family) {
    return family == WireFamily::Margay ? "Margay" : "Ocelot";
}

Limit If(bool judged, Limit limit) {
    return judged ? limit : Limit::None;
}

template <typename... Values>
std::string Note(const char* format, Values... values) {
    char text[128];
    snprintf(text, sizeof text, format, values...);
    return text;
}

/// The sizes of the frames that a command or a status read consists of.
struct FrameSizes {
    int request, answer, eof;
    int check;        // what a data frame has beside its data
    int bytesOnLine;  // of one byte of data
    int nameLength;   // of a department

    int Data(int bytes) const { return bytes * bytesOnLine + check; }
    int Command(int parameters) const {
        return request + answer + Data(2 + parameters) + answer + eof + answer;
    }
    int StatusRead() const { return request + answer + Data(2 + 15) + answer + eof + answer; }
    int SaleData() const { return Data(2 + 1 + nameLength + 3 + 4); }
};

constexpr FrameSizes ocelotSizes = {5, 4, 4, 2, 1, 18};
constexpr FrameSizes margaySizes = {5, 1, 3, 3, 2, 20};

const FrameSizes& SizesOf(WireFamily family) {
    return family == WireFamily::Margay ? margaySizes : ocelotSizes;
}

// --- one sale, frame by frame --------------------------------------------------------------------

constexpr const char* frameNames[] = {"request", "answer",      "data",
                                      "answer",  "end of file", "answer"};
constexpr std::size_t framesPerCommand = std::size(frameNames);
constexpr std::size_t dataFrameAt = 2;

/// Where the frames of each sale begin. The first sale of the file is left out: its status is not
/// the usual one.
std::vector<std::size_t> SalesIn(const std::vector<FrameSeen>& frames, int dataSize) {
    std::vector<std::size_t> begins;
    for (std::size_t i = framesPerCommand; i + framesPerCommand <= frames.size(); ++i) {
        const FrameSeen& data = frames[i + dataFrameAt];
        if (data.fromDriver && data.bytes.size() == static_cast<std::size_t>(dataSize))
            begins.push_back(i);
    }
    return begins;
}

/// The time from the frame before to this one, less what the two need on the wire.
double Waited(const std::vector<FrameSeen>& frames, std::size_t at) {
    const FrameSeen& frame = frames[at];
    const FrameSeen& before = frames[at - 1];
    const double between = frame.atMs - before.atMs;
    // What came from the register is noted at its first byte, what goes there at its last.
    if (!frame.fromDriver) return between;
    return between - static_cast<double>(before.bytes.size() + frame.bytes.size()) * byteMs;
}

SaleTimes MedianSale(const std::string& family, const std::vector<FrameSeen>& frames,
                     int dataSize) {
    SaleTimes sale{family, {}};
    const std::vector<std::size_t> begins = SalesIn(frames, dataSize);
    if (begins.empty()) throw std::runtime_error("no sale was seen on the line");
    for (std::size_t i = 0; i < framesPerCommand; ++i) {
        std::vector<double> waits;
        for (std::size_t begin : begins) waits.push_back(Waited(frames, begin + i));
        const FrameSeen& first = frames[begins.front() + i];
        const double wait = std::max(0.0, Median(waits));
        sale.frames.push_back({frameNames[i], first.fromDriver,
                               static_cast<double>(first.bytes.size()) * byteMs,
                               first.fromDriver ? 0 : wait, first.fromDriver ? wait : 0});
    }
    return sale;
}

// --- system calls --------------------------------------------------------------------------------

/// The total of a summary by `strace -c`.
long CallsIn(const std::string& summaryFile) {
    std::ifstream in(summaryFile);
    for (std::string line; std::getline(in, line);) {
        if (!line.ends_with(" total")) continue;
        std::istringstream words(line);
        std::string share, seconds, usecsPerCall;
        long calls = 0;
        words >> share >> seconds >> usecsPerCall >> calls;
        return calls;
    }
    throw std::runtime_error("strace counted nothing");
}

long CallsOf(const Rig& rig, int commands) {
    rig.RunUnder({"strace", "-f", "-c", "-o", "calls.txt"}, Receipt(commands));
    return CallsIn("calls.txt");
}

double ReadingUs(const std::string& way, const std::string& file) {
    return std::stod(OutputOf({"/proc/self/exe", "--read", way, file}));
}

std::string Commands(int count) {
    return std::to_string(count) + " commands";
}

// --- the line ------------------------------------------------------------------------------------

struct LineRuns {
    double bytes = 0, statusReads = 0, lineMs = 0;  // of all runs of the driver
    std::vector<FrameSeen> frames;
    Series driver, replayed;
    std::vector<double> ratios;  // of each pair
};

/// In turn: what the machine adds changes from minute to minute.
LineRuns RunBesideReplays(WireFamily family, int commands, int rounds) {
    LineRuns all;
    for (int i = 0; i < rounds; ++i) {
        const Rig rig = Rig(family).Paced(true).NoteFrames();
        const ServedRun run = rig.Run(Receipt(commands), 1);
        all.driver.runs.push_back(run.series.runs.front());
        all.replayed.runs.push_back(rig.Replay(run).runs.front());
        all.ratios.push_back((all.driver.runs.back().wallMs - closingPauseMs) /
                             all.replayed.runs.back().wallMs);
        all.frames.insert(all.frames.end(), run.frames.begin(), run.frames.end());
        all.bytes += static_cast<double>(run.counters.bytesIn + run.counters.bytesOut);
        all.statusReads += run.counters.statusReads;
        all.lineMs += run.LineMs();
    }
    return all;
}

}  // namespace

Effort QuickEffort() {
    return {.rounds = 1, .starts = 5, .sizes = {10, 100}, .readLines = 1000, .judged = false};
}

long FewestBytes(WireFamily family, int commands) {
    const FrameSizes& sizes = SizesOf(family);
    constexpr int cashierNumber = 1;
    constexpr int tender = 5;  // the medium and the amount
    const int sale = sizes.request + 3 * sizes.answer + sizes.SaleData() + sizes.eof;
    return plainStatusReads * sizes.StatusRead() + sizes.Command(cashierNumber) +
           static_cast<long>(commands - 1) * sale + sizes.Command(tender) + sizes.Command(0);
}

SaleTimes MeasureLine(Report& report, const Effort& effort, WireFamily family) {
    const std::string group = "The line, " + NameOf(family) + " frames";
    const int commands = effort.judged ? receiptCommands : 5;
    const LineRuns line = RunBesideReplays(family, commands, effort.rounds);
    const double lineMs = line.lineMs / effort.rounds;
    report.Add({group, "bytes of " + Commands(commands), line.bytes / effort.rounds, "bytes",
                Limit::Exactly, static_cast<double>(FewestBytes(family, commands))});
    report.Add({group, "status reads", line.statusReads / effort.rounds, "", Limit::Exactly,
                plainStatusReads});
    const double wall = line.driver.WallMs() - closingPauseMs;
    const double bare = line.replayed.WallMs();
    report.Add({group, "(time - 100 ms) / time of the bytes", wall / lineMs, "times",
                If(effort.judged, Limit::AtMost), 1.03,
                Note("%.1f ms for %.1f ms on the line", wall, lineMs)});
    report.Add({group, "bare exchange / time of the bytes", bare / lineMs, "times", Limit::None, 0,
                Note("%.1f ms", bare)});
    report.Add({group, "(time - 100 ms) / bare exchange", Median(line.ratios), "times",
                If(effort.judged, Limit::AtMost), 1.03});
    return MedianSale(NameOf(family), line.frames, SizesOf(family).SaleData());
}

void MeasureProcessor(Report& report, const Effort& effort, WireFamily family) {
    const std::string group = "The processor, " + NameOf(family) + " frames, debug log on";
    const Rig rig(family);
    const double calls = static_cast<double>(CallsOf(rig, 200) - CallsOf(rig, 100)) / 100;
    report.Add({group, "system calls per command", calls, "", Limit::AtMost, 60});
    const int more = effort.judged ? 2000 : 100;
    std::vector<double> perCommand;
    for (int i = 0; i < effort.rounds; ++i) {
        const double few = rig.Run(Receipt(100), 1).series.ProcessorMs();
        const double many = rig.Run(Receipt(100 + more), 1).series.ProcessorMs();
        perCommand.push_back((many - few) * 1000 / more);
    }
    report.Add({group, "processor time per command", Median(perCommand), "us",
                If(effort.judged, Limit::AtMost), 500});
}

void MeasureStart(Report& report, const Effort& effort) {
    const std::string group = "Starting";
    const std::vector<Series> starts =
        RunInTurn(effort.starts, {{"/bin/true"}, {VOLTIS_PATH, "/?"}});
    const double nothing = starts[0].WallMs();
    const double usage = starts[1].WallMs();
    report.Add({group, "voltis /? against /bin/true", usage / nothing, "times",
                If(effort.judged, Limit::AtMost), 3, Note("%.2f ms and %.2f ms", usage, nothing)});
    const int sales = effort.judged ? 11 : 1;
    const double sale = Rig(WireFamily::Ocelot).Run(Receipt(2), sales).series.WallMs();
    report.Add({group, "a sale on an endless fast line, less 100 ms", sale - closingPauseMs, "ms",
                If(effort.judged, Limit::AtMost), 20});
}

void MeasureCompanion(Report& report, const Effort& effort) {
    const std::string group = "voltisctl run, a sale of ten lines on the line";
    const int rounds = effort.judged ? 41 : 1;
    fs::create_directory("locks");
    const std::vector<Series> runs =
        Rig(WireFamily::Ocelot)
            .Paced(true)
            .RunEach(Receipt(10), rounds,
                     {{VOLTIS_PATH},
                      {VOLTISCTL_PATH, "run", "--locks", "locks", "--journal", "journal.db"}});
    const double alone = runs[0].WallMs();
    const double with = runs[1].WallMs();
    report.Add({group, "more than voltis alone", with - alone, "ms",
                If(effort.judged, Limit::AtMost), 20, Note("%.1f ms and %.1f ms", with, alone)});
    report.Add({group, "against voltis alone", with / alone, "times",
                If(effort.judged, Limit::AtMost), 1.05});
    report.Add({group, "processor time more than voltis alone",
                runs[1].ProcessorMs() - runs[0].ProcessorMs(), "ms"});
    report.Add({group, "peak memory", static_cast<double>(runs[1].PeakKb()) / 1024, "MB",
                Limit::AtMost, 16});
}

void MeasureCheck(Report& report, const Effort& effort) {
    const std::string group = "voltisctl check, for one model";
    const int few = effort.readLines / 10;
    const int many = effort.readLines * 10;
    std::ofstream("check-few.txt") << Receipt(few);
    std::ofstream("check-many.txt") << Receipt(many);
    const CommandLine check = {VOLTISCTL_PATH, "check", "--model", "ocelot", "--protocol", "2"};
    CommandLine ofFew = check;
    CommandLine ofMany = check;
    ofFew.push_back("check-few.txt");
    ofMany.push_back("check-many.txt");
    const std::vector<Series> runs = RunInTurn(effort.rounds, {ofFew, ofMany});
    report.Add({group, "lines in a second", many / runs[1].WallMs() * 1000, "",
                If(effort.judged, Limit::AtLeast), 500000,
                Note("%d lines in %.0f ms", many, runs[1].WallMs())});
    const auto more = static_cast<double>(runs[1].PeakKb() - runs[0].PeakKb());
    report.Add({group, "memory of 100 times as many lines", more / 1024, "MB more", Limit::AtMost,
                0.5, Note("%.1f MB", static_cast<double>(runs[1].PeakKb()) / 1024)});
}

namespace {

constexpr char traceHead[] =
    "14.03.2026 08:41:12.108  VOLTIS v2.5.0 started. Command line : \"voltis\" /pos/sale.txt\n"
    "14.03.2026 08:41:12.113  ------ Reading ECR fiscal status ------\n"
    "PC->ECR   5 bytes in    0.1 ms : d9 01 d1 09 4c\n"
    "PC<-ECR   4 bytes in    6.3 ms : d9 06 df 42\n"
    "PC<-ECR  19 bytes in   14.8 ms : 41 00 06 01 00 10 00 00 12 06 00 00 00 00 00 00 00 42 4e\n"
    "PC->ECR   4 bytes in    0.1 ms : d9 06 df 42\n"
    "PC<-ECR   4 bytes in    5.2 ms : ff ff 00 02\n"
    "PC->ECR   4 bytes in    0.1 ms : d9 06 df 42\n";

// A data frame with its check bytes, as a line of the log.
std::string DataLine(std::vector<unsigned> bytes) {
    unsigned all = 0;
    unsigned sum = 0;
    for (const unsigned byte : bytes) {
        all ^= byte;
        sum += byte;
    }
    bytes.push_back(all);
    bytes.push_back((0U - (sum + all)) & 0xFFU);
    std::string line = Note("PC->ECR %3d bytes in    0.1 ms :", static_cast<int>(bytes.size()));
    for (const unsigned byte : bytes) line += Note(" %02x", byte);
    return line + "\n";
}

std::string LoggedSale(int number) {
    const auto sequence = static_cast<unsigned>(number % 0xFFFE + 1);
    std::vector<unsigned> bytes = {sequence & 0xFFU, sequence >> 8, 1};
    for (const char letter : std::string("RYE BREAD         "))
        bytes.push_back(static_cast<unsigned>(letter));
    for (const unsigned digit : {0x00U, 0x10U, 0x00U, 0x00U, 0x00U, 0x02U, 0x50U})
        bytes.push_back(digit);
    const std::string ack = "PC<-ECR   4 bytes in    6.1 ms : d9 06 df 42\n";
    return "PC->ECR   5 bytes in    0.1 ms : d0 01 b3 62 1a\n" + ack + DataLine(bytes) + ack +
           "PC->ECR   4 bytes in    0.1 ms : ff ff 00 02\n" + ack;
}

// Of that many megabytes; a run ends after so many sales.
void WriteLog(const std::string& file, double megabytes, int salesOfRun) {
    std::ofstream out(file);
    constexpr double million = 1e6;
    constexpr int framesOfStatus = 3;
    while (static_cast<double>(out.tellp()) < megabytes * million) {
        out << traceHead;
        int sales = 0;
        for (; sales < salesOfRun && static_cast<double>(out.tellp()) < megabytes * million;
             ++sales)
            out << LoggedSale(sales);
        out << "14.03.2026 08:41:24.848  I/O statistics : OUT frames = "
            << framesOfStatus + 3 * sales << ", IN frames = 1\n";
    }
}

}  // namespace

void MeasureTrace(Report& report, const Effort& effort) {
    const std::string group = "voltisctl trace";
    const double megabytes = effort.judged ? 100 : 1;
    const int endless = 1000000000;
    WriteLog("runs.log", megabytes, 10);
    WriteLog("run.log", megabytes, endless);
    const std::vector<Series> logs =
        RunInTurn(effort.judged ? 3 : 1,
                  {{VOLTISCTL_PATH, "trace", "runs.log"}, {VOLTISCTL_PATH, "trace", "run.log"}});
    const char* const names[] = {"runs of ten sales", "one run"};
    for (std::size_t i = 0; i < logs.size(); ++i) {
        report.Add({group, std::string("100 MB, ") + names[i], logs[i].WallMs() / 1000, "s",
                    If(effort.judged, Limit::AtMost), 4});
        report.Add({group, std::string("peak memory, ") + names[i],
                    static_cast<double>(logs[i].PeakKb()) / 1024, "MB", Limit::AtMost, 64});
    }
}

void MeasureFreshReading(Report& report, const Effort& effort) {
    const std::string group = "Reading a file in a fresh process";
    const double few = 1000;
    const double many = effort.readLines;
    std::ofstream("few.txt") << Receipt(static_cast<int>(few));
    std::ofstream("many.txt") << Receipt(effort.readLines);
    std::vector<double> driver;
    std::vector<double> driverFew;
    std::vector<double> plain;
    for (int i = 0; i < 4 * effort.rounds + 1; ++i) {
        driver.push_back(ReadingUs("driver", "many.txt"));
        driverFew.push_back(ReadingUs("driver", "few.txt"));
        plain.push_back(ReadingUs("plainly", "many.txt"));
    }
    report.Add({group, "against fgets and strtok", Median(driver) / Median(plain), "times",
                If(effort.judged, Limit::AtMost), 6,
                Note("%.0f lines: %.1f ms and %.1f ms", many, Median(driver) / 1000,
                     Median(plain) / 1000)});
    report.Add({group, "a command of 100000 against one of 1000",
                Median(driver) / many / (Median(driverFew) / few), "times",
                If(effort.judged, Limit::AtMost), 1.15});
}

std::vector<RunCost> MeasureGrowth(Report& report, const Effort& effort) {
    const std::string group = "Whole runs on an endless fast line, debug log on";
    const Rig rig(WireFamily::Ocelot);
    std::vector<std::vector<double>> processorMs(effort.sizes.size());
    std::vector<std::vector<double>> peakKb(effort.sizes.size());
    for (int round = 0; round < effort.rounds; ++round) {
        for (std::size_t i = 0; i < effort.sizes.size(); ++i) {
            const RunFigures run = rig.Run(Receipt(effort.sizes[i]), 1).series.runs.front();
            processorMs[i].push_back(run.processorMs);
            peakKb[i].push_back(static_cast<double>(run.peakKb));
        }
    }
    std::vector<RunCost> costs;
    for (std::size_t i = 0; i < effort.sizes.size(); ++i) {
        const double perCommand = Median(processorMs[i]) * 1000 / effort.sizes[i];
        costs.push_back({effort.sizes[i], perCommand, static_cast<long>(Median(peakKb[i]))});
        report.Add({group, Commands(effort.sizes[i]), perCommand, "us", Limit::None, 0,
                    Note("of the processor per command, %ld KB at most", costs.back().peakKb)});
    }
    if (!effort.judged) return costs;
    const RunCost& small = costs[2];
    const RunCost& large = costs.back();
    report.Add({group, "peak memory at 1000 commands", static_cast<double>(small.peakKb) / 1024,
                "MB", Limit::AtMost, 8});
    report.Add(
        {group, "more per further command",
         static_cast<double>(large.peakKb - small.peakKb) / (large.commands - small.commands), "KB",
         Limit::AtMost, 0.6});
    report.Add({group, "a command of 100000 against one of 1000",
                large.processorUsPerCommand / small.processorUsPerCommand, "times", Limit::AtMost,
                1.15, "the sequence number wraps on the way"});
    return costs;
}
