// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The emulated register on a pseudo terminal, used as a driver uses a serial port.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <string>
#include <system_error>
#include <thread>

#include "emulator/PtyServer.h"
#include "tests/emulator/Peer.h"

using namespace emulator;
using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto patience = 10s;  // far beyond anything that should take time

RegisterConfig Ocelot() {
    RegisterConfig config;
    config.model = FindModel("ocelot", 2);
    return config;
}

// A serial port opened and set up like a driver's: 8 data bits, odd parity.
class Port {
  public:
    explicit Port(const std::string& path, speed_t speed = B19200)
        : fd_(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        EXPECT_GE(fd_, 0);
        termios settings{};
        settings.c_cflag = CS8 | PARENB | PARODD | CREAD | HUPCL | CLOCAL;
        cfsetispeed(&settings, speed);
        cfsetospeed(&settings, speed);
        setupResult_ = tcsetattr(fd_, TCSAFLUSH, &settings);
    }
    ~Port() { close(fd_); }
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    bool SetUp() const { return setupResult_ == 0; }
    int Fd() const { return fd_; }
    void Write(const Bytes& bytes) {
        EXPECT_EQ(write(fd_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    // Up to size bytes, waiting for each no longer than wait.
    Bytes Read(std::size_t size, std::chrono::milliseconds wait = patience) {
        Bytes bytes;
        while (bytes.size() < size) {
            pollfd state{fd_, POLLIN, 0};
            std::uint8_t byte = 0;
            if (poll(&state, 1, static_cast<int>(wait.count())) <= 0) break;
            if (read(fd_, &byte, 1) != 1) break;
            bytes.push_back(byte);
        }
        return bytes;
    }

  private:
    int fd_;
    int setupResult_ = -1;
};

class Server : public testing::Test {
  protected:
    void Start(PtyOptions options = {}) {
        server = std::make_unique<PtyServer>(line, std::move(options));
        thread = std::thread([this] { server->Run(); });
    }
    void TearDown() override {
        if (!thread.joinable()) return;
        server->Stop();
        thread.join();
    }
    // Done in the server's thread.
    template <typename Action>
    auto Ask(Action action) {
        std::promise<decltype(action())> promise;
        server->Post([&] { promise.set_value(action()); });
        return promise.get_future().get();
    }
    bool Eventually(const std::function<bool()>& condition) {
        const auto end = Clock::now() + patience;
        while (Clock::now() < end) {
            if (Ask(condition)) return true;
            std::this_thread::sleep_for(1ms);
        }
        return false;
    }

    Register device{Ocelot()};
    Line line{WireFamily::Ocelot, device};
    Peer peer{line, WireFamily::Ocelot};
    std::unique_ptr<PtyServer> server;
    std::thread thread;
};

}  // namespace

TEST_F(Server, AnswersAStatusRead) {
    Start();
    Port port(server->SlavePath());
    port.Write(FromHex("d9 01 d1 09 4c"));
    const Bytes reply = port.Read(23);
    EXPECT_EQ(ToHex({reply.begin(), reply.begin() + 4}), "d9 06 df 42");
    EXPECT_EQ(reply.size(), 23U);
    port.Write(peer.Ack());
    EXPECT_EQ(ToHex(port.Read(4)), "ff ff 00 02");
    port.Write(peer.Ack());
    EXPECT_TRUE(Eventually([this] { return line.Counters().answers == 2; }));
}

TEST_F(Server, PassesEveryByteUnchangedBothWays) {
    Start();
    Bytes seen;
    Bytes all(256);
    for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<std::uint8_t>(i);
    Ask([&] {
        line.OnReceive(
            [&](Bytes& chunk) { seen = seen + chunk, chunk = FromHex("d0 01 b0 61 1e"); });
        line.OnSend([&](Bytes& reply) { reply = all; });
        return 0;
    });
    Port port(server->SlavePath());
    port.Write(all);
    EXPECT_EQ(port.Read(256), all);
    EXPECT_EQ(Ask([&] { return seen; }), all);
}

TEST_F(Server, LosesWhatNobodyReadsAndGoesOn) {
    Start();
    constexpr std::size_t large = 1 << 20;  // far beyond what the kernel keeps for a reader
    Ask([&] { return line.OnSend([](Bytes& reply) { reply.assign(large, 0x55); }), 0; });
    Port port(server->SlavePath());
    port.Write(FromHex("d9 01 d1 09 4c"));
    ASSERT_TRUE(Eventually([this] { return line.Counters().requests == 1; }));
    EXPECT_LT(port.Read(large, 100ms).size(), large);
    Ask([&] { return line.OnSend({}), 0; });
    port.Write(FromHex("d9 01 d1 09 4c"));
    EXPECT_EQ(port.Read(23).size(), 23U);
}

TEST_F(Server, EndsABurstAfterTheGap) {
    Start({.gap = 30ms, .bitsPerSecond = 0, .link = ""});
    Port port(server->SlavePath());
    port.Write(peer.RequestFrame(EnterFiscalMode));
    EXPECT_EQ(port.Read(4), peer.Ack());
    const auto begin = Clock::now();
    port.Write(FromHex("77"));
    EXPECT_EQ(port.Read(4), peer.Nak());
    EXPECT_GE(Clock::now() - begin, 30ms);
}

TEST_F(Server, WaitsForTheNextByteWithinTheGap) {
    Start({.gap = 2000ms, .bitsPerSecond = 0, .link = ""});
    Port port(server->SlavePath());
    const Bytes request = peer.RequestFrame(EnterFiscalMode);
    port.Write({request.begin(), request.begin() + 2});
    EXPECT_TRUE(Eventually([this] { return line.Pending(); }));
    port.Write({request.begin() + 2, request.end()});
    EXPECT_EQ(port.Read(4), peer.Ack());
}

TEST_F(Server, CanBeSetUpAnewAfterEachClosing) {
    Start();
    for (int run = 1; run <= 20; ++run) {
        {
            Port port(server->SlavePath());
            ASSERT_TRUE(port.SetUp()) << run;
            port.Write(FromHex("d9 01 d1 09 4c"));
            EXPECT_EQ(port.Read(23).size(), 23U);
        }
        ASSERT_TRUE(Eventually([&] { return server->Closings() == run; })) << run;
    }
}

TEST_F(Server, AResetMakesTheNextSetUpPossible) {
    PtyServer idle(line);
    { EXPECT_TRUE(Port(idle.SlavePath()).SetUp()); }
    static_cast<void>(Port(idle.SlavePath()).SetUp());  // which kernels refuse that see no change
    for (speed_t speed : std::initializer_list<speed_t>{B19200, B9600, B115200}) {
        idle.ResetSettings();
        EXPECT_TRUE(Port(idle.SlavePath(), speed).SetUp());
    }
}

TEST_F(Server, TheResetLeavesTheTimeoutsOfAnOpenPortAlone) {
    PtyServer idle(line);
    Port port(idle.SlavePath());
    termios settings{};
    ASSERT_EQ(tcgetattr(port.Fd(), &settings), 0);
    settings.c_cc[VMIN] = 0;
    settings.c_cc[VTIME] = 77;
    ASSERT_EQ(tcsetattr(port.Fd(), TCSANOW, &settings), 0);
    idle.ResetSettings();
    ASSERT_EQ(tcgetattr(port.Fd(), &settings), 0);
    EXPECT_EQ(settings.c_cc[VMIN], 0);
    EXPECT_EQ(settings.c_cc[VTIME], 77);
}

TEST_F(Server, ActsOnWhatWasWrittenJustBeforeClosing) {
    Start();
    { Port(server->SlavePath()).Write(peer.RequestFrame(EnterFiscalMode)); }
    EXPECT_TRUE(Eventually([this] { return line.Counters().requests == 1; }));
}

TEST_F(Server, SleepsWhileNobodyIsThere) {
    Start();
    { Port port(server->SlavePath()); }
    EXPECT_TRUE(Eventually([this] { return server->Closings() == 1; }));
    const auto used = [this] {
        return Ask([] {
            timespec time{};
            clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
            return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
        });
    };
    const double before = used();
    std::this_thread::sleep_for(300ms);
    EXPECT_LT(used() - before, 0.03);
}

TEST_F(Server, HoldsThePaceOfTheLineBothWays) {
    // 11 bits a byte at 4400 bit/s: 2.5 ms a byte.
    Start({.gap = 20ms, .bitsPerSecond = 4400, .link = ""});
    Port port(server->SlavePath());
    const auto begin = Clock::now();
    port.Write(FromHex("d9 01 d1 09 4c"));  // 5 bytes: 12.5 ms
    EXPECT_EQ(port.Read(23).size(), 23U);   // 57.5 ms
    const auto taken = Clock::now() - begin;
    EXPECT_GE(taken, 70ms);
    EXPECT_LT(taken, 2s);
}

TEST_F(Server, KeepsALinkWhileServing) {
    const std::string link =
        (std::filesystem::temp_directory_path() / ("emulator-link-" + std::to_string(getpid())))
            .string();
    std::filesystem::create_symlink("/nowhere", link);  // an old one is replaced
    {
        PtyServer linked(line, {.gap = 20ms, .bitsPerSecond = 0, .link = link});
        EXPECT_EQ(std::filesystem::read_symlink(link), linked.SlavePath());
    }
    EXPECT_FALSE(std::filesystem::is_symlink(link));
}

TEST_F(Server, RefusesToReplaceAFileByItsLink) {
    const std::string path =
        (std::filesystem::temp_directory_path() / ("emulator-file-" + std::to_string(getpid())))
            .string();
    close(open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    EXPECT_THROW(PtyServer(line, {.gap = 20ms, .bitsPerSecond = 0, .link = path}),
                 std::system_error);
    EXPECT_TRUE(std::filesystem::is_regular_file(path));
    std::filesystem::remove(path);
}

TEST_F(Server, StopsBeforeItRunsAndRunsAgain) {
    PtyServer idle(line);
    idle.Stop();
    idle.Run();
    bool posted = false;
    idle.Post([&] {
        posted = true;
        idle.Stop();
    });
    idle.Run();
    EXPECT_TRUE(posted);
}

TEST_F(Server, WatchesOtherDescriptorsUntilToldToStop) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    PtyServer idle(line);
    std::string heard;
    idle.Watch(ends[0], [&] {
        char c = 0;
        if (read(ends[0], &c, 1) == 1) {
            heard += c;
            return true;
        }
        idle.Stop();
        return false;
    });
    EXPECT_EQ(write(ends[1], "key", 3), 3);
    close(ends[1]);
    idle.Run();
    EXPECT_EQ(heard, "key");
    close(ends[0]);
}

TEST_F(Server, IsSilentWhileTheRegisterIsOff) {
    Start();
    Port port(server->SlavePath());
    Ask([this] { return device.PowerOff(), 0; });
    port.Write(FromHex("d9 01 d1 09 4c"));
    EXPECT_TRUE(port.Read(1, 100ms).empty());
    Ask([this] { return device.PowerOn(), 0; });
    port.Write(FromHex("d9 01 d1 09 4c"));
    EXPECT_EQ(port.Read(23).size(), 23U);
}

// --- any far end ---------------------------------------------------------------------------------

namespace {

// Writes down what it is told, and answers each delivery with one byte.
class Diary : public FarEnd {
  public:
    Bytes Feed(View) override { return told += 'b', Bytes{7}; }
    Bytes Idle() override { return {}; }
    bool Pending() const override { return false; }
    std::chrono::milliseconds Delay() const override { return delay; }
    void Sent() override { ++sent; }
    void Unsent() override { told += 'u'; }
    int PowerFailures() const override { return failures; }
    void Closed() override { told += 'c'; }

    std::string told;
    int failures = 0, sent = 0;
    std::chrono::milliseconds delay{0};
};

struct AnyFarEnd : testing::Test {
    void Start() {
        thread = std::thread([this] { server.Run(); });
    }
    void TearDown() override {
        server.Stop();
        if (thread.joinable()) thread.join();
    }
    std::string Told() {
        std::promise<std::string> told;
        server.Post([&] { told.set_value(diary.told); });
        return told.get_future().get();
    }
    // Waits for it.
    bool Tells(const std::string& expected) {
        const auto end = Clock::now() + patience;
        while (Told() != expected && Clock::now() < end) std::this_thread::sleep_for(1ms);
        return Told() == expected;
    }

    Diary diary;
    PtyServer server{diary};
    std::thread thread;
};

}  // namespace

TEST_F(AnyFarEnd, IsToldOfAClosingAfterTheLastBytes) {
    Start();
    std::string expected;
    for (int i = 0; i < 20; ++i) {
        Port(server.SlavePath()).Write({1});
        expected += "bc";
        EXPECT_TRUE(Tells(expected));
    }
}

TEST_F(AnyFarEnd, MayAnswerLate) {
    diary.delay = 60ms;
    Start();
    Port port(server.SlavePath());
    const auto start = Clock::now();
    port.Write({1});
    EXPECT_EQ(port.Read(1), Bytes{7});
    EXPECT_GE(Clock::now() - start, 60ms);
}

TEST_F(AnyFarEnd, LosesALateAnswerAtAPowerFailureHoweverShort) {
    diary.delay = 40ms;
    Start();
    Port port(server.SlavePath());
    port.Write({1});
    EXPECT_TRUE(Tells("b"));
    server.Post([this] { ++diary.failures; });
    EXPECT_TRUE(port.Read(1, 100ms).empty());
    EXPECT_EQ(Told(), "bu");
    EXPECT_EQ(diary.sent, 0);
}

TEST_F(AnyFarEnd, AnswersAtOnceAfterAPowerFailureThatLostALateAnswer) {
    diary.delay = 1h;
    Start();
    Port port(server.SlavePath());
    port.Write({1});
    EXPECT_TRUE(Tells("b"));
    server.Post([this] {
        ++diary.failures;
        diary.delay = 0ms;
    });
    EXPECT_TRUE(Tells("bu"));
    port.Write({1});
    EXPECT_EQ(port.Read(1), Bytes{7});
    EXPECT_EQ(Told(), "bub");
    EXPECT_EQ(diary.sent, 1);
}

TEST_F(AnyFarEnd, HasActionsDoneInTheirTimeAndBeforeAReplyIsSent) {
    std::promise<Clock::time_point> late;
    std::string order;
    server.BeforeSending([&] { order += "saved"; });
    server.After(30ms, [&] { late.set_value(Clock::now()); });
    const auto start = Clock::now();
    Start();
    EXPECT_GE(late.get_future().get() - start, 30ms);
    Port port(server.SlavePath());
    port.Write({1});
    EXPECT_EQ(port.Read(1), Bytes{7});
    EXPECT_EQ(order, "saved");
}
