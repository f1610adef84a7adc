// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/doctor/Line.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace doctor {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds betweenBytes{100};

[[noreturn]] void FailOn(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

int Opened(const std::string& device) {
    const int fd = open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd == -1) FailOn("cannot open '" + device + "'");
    return fd;
}

bool Ready(int fd, short events, milliseconds wait) {
    pollfd poll = {fd, events, 0};
    return ::poll(&poll, 1, static_cast<int>(wait.count())) > 0;
}

BUF BufOf(verdict::View bytes) {
    BUF frame;
    for (const std::uint8_t byte : bytes) frame.AddBYTE(byte, 1);
    return frame;
}

Bytes BytesOf(const BUF& frame) {
    Bytes bytes;
    bytes.reserve(frame.GetSize());
    for (DWORD i = 0; i < frame.GetSize(); ++i) bytes.push_back(frame[i]);
    return bytes;
}

std::unique_ptr<IProtocolFormatter> FormatterOf(ProtocolFormatting family) {
    if (family == ProtocolFormatting_Margay)
        return std::make_unique<ProtocolFormatter_Margay>(false);
    return std::make_unique<ProtocolFormatter_Ocelot>(false);
}

Reply ReplyOf(BYTE code) {
    switch (code) {
        case ACK:
            return Reply::Ack;
        case NAK:
            return Reply::Nak;
        case BSY:
            return Reply::Busy;
        default:
            return Reply::Garbage;
    }
}

}  // namespace

// --- the port -----------------------------------------------------------------------------------

class SerialLine::Settings {
  public:
    explicit Settings(int fd) : fd_(fd) {
        if (tcgetattr(fd, &before_) != 0) FailOn("cannot read the settings of the port");
        termios settings = before_;
        cfmakeraw(&settings);
        settings.c_cflag |= CLOCAL | CREAD | PARENB | PARODD;
        settings.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | CRTSCTS);
        settings.c_iflag |= INPCK;
        cfsetispeed(&settings, B19200);
        cfsetospeed(&settings, B19200);
        // A pseudo terminal has no parity, and refuses settings that change nothing else.
        if (tcsetattr(fd, TCSAFLUSH, &settings) != 0 && errno != EINVAL)
            FailOn("cannot set the port");
    }
    ~Settings() { tcsetattr(fd_, TCSADRAIN, &before_); }
    Settings(const Settings&) = delete;
    Settings& operator=(const Settings&) = delete;

  private:
    int fd_;
    termios before_{};
};

SerialLine::SerialLine(const std::string& device) : fd_(Opened(device)) {
    try {
        settings_ = std::make_unique<Settings>(fd_);
    } catch (...) {
        close(fd_);
        throw;
    }
}

SerialLine::~SerialLine() {
    settings_.reset();
    close(fd_);
}

void SerialLine::Drop() const {
    std::array<std::uint8_t, 256> stale{};
    while (read(fd_, stale.data(), stale.size()) > 0) {
    }
}

void SerialLine::Write(verdict::View bytes) {
    Drop();
    constexpr milliseconds longest{2000};
    while (!bytes.empty()) {
        const ssize_t count = write(fd_, bytes.data(), bytes.size());
        if (count > 0) {
            bytes = bytes.subspan(static_cast<std::size_t>(count));
        } else if (errno != EAGAIN || !Ready(fd_, POLLOUT, longest)) {
            FailOn("cannot write to the port");
        }
    }
}

Bytes SerialLine::Read(std::size_t count, milliseconds first) {
    Bytes bytes(count);
    std::size_t size = 0;
    while (size < count && Ready(fd_, POLLIN, size == 0 ? first : betweenBytes)) {
        const ssize_t more = read(fd_, bytes.data() + size, count - size);
        if (more == 0) errno = EIO;  // the device has gone, which is no failure of the call
        if (more <= 0) FailOn("cannot read from the port");
        size += static_cast<std::size_t>(more);
    }
    bytes.resize(size);
    return bytes;
}

// --- frames -------------------------------------------------------------------------------------

Speaker::Speaker(Line& line, ProtocolFormatting family, std::uint8_t networkId, milliseconds wait)
    : line_(line),
      family_(family),
      networkId_(networkId),
      wait_(wait),
      formatter_(FormatterOf(family)) {}

Reply Speaker::Send(const BUF& frame) {
    line_.Write(BytesOf(frame));
    const BUF answer = Receive(formatter_->GetResponseFrameSize());
    return answer.GetSize() == 0 ? Reply::Silence : ReplyOf(formatter_->ParseResponseFrame(answer));
}

BUF Speaker::Receive(std::size_t size) {
    return BufOf(line_.Read(size, wait_));
}

void Speaker::Accept() {
    line_.Write(BytesOf(formatter_->BuildResponseFrame(ACK)));
}

Speaker::Answer Speaker::ReadStatus() {
    const BUF request = formatter_->BuildDataReadRequestFrame(networkId_, CMD_READ_FISCAL_STATUS);
    Answer answer{Send(request), std::nullopt};
    if (answer.reply != Reply::Ack) return answer;
    constexpr WORD size = sizeof(WORD) + ecrFiscalStatusLength;
    const Bytes data = line_.Read(formatter_->GetDataFrameSize(size), wait_);
    Accept();
    Receive(formatter_->GetEofFrameSize());
    Accept();
    verdict::Frames frames({family_, networkId_, false});
    frames.Take(BytesOf(request));
    for (const verdict::Heard& heard : frames.Listen(data))
        if (heard.kind == verdict::Heard::Kind::Status) answer.status = heard.status;
    if (!answer.status) answer.reply = Reply::Garbage;
    return answer;
}

Reply Speaker::Request(std::uint8_t command) {
    return Send(formatter_->BuildDataSendRequestFrame(networkId_, command));
}

// The check byte before the last: a Margay frame ends with a byte that is no check.
Reply Speaker::SendData(std::uint16_t number, const Bytes& payload, bool spoilt) {
    BUF data;
    data.AddWORD(number);
    for (const std::uint8_t byte : payload) data.AddBYTE(byte, 1);
    const BUF frame = formatter_->BuildDataFrame(data);
    if (!spoilt) return Send(frame);
    Bytes bytes = BytesOf(frame);
    bytes[bytes.size() - 2] ^= 1;
    return Send(BufOf(bytes));
}

Reply Speaker::SendEof() {
    return Send(formatter_->BuildEofFrame());
}

}  // namespace doctor
