// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "voltisd/Configuration.h"

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <functional>
#include <iterator>
#include <map>
#include <sstream>
#include <system_error>

#include "companion/runner/Files.h"
#include "companion/runner/IniText.h"

namespace fs = std::filesystem;

namespace voltisd {

namespace {

constexpr char section[] = "voltisd";

// --- values --------------------------------------------------------------------------------------

/// Why a value makes no sense.
class Senseless : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

std::string InSmallLetters(std::string text) {
    std::ranges::transform(text, text.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    });
    return text;
}

std::vector<std::string> WordsOf(std::string text) {
    std::ranges::replace(text, ',', ' ');
    std::istringstream in(text);
    std::vector<std::string> words;
    for (std::string word; in >> word;) words.push_back(word);
    return words;
}

std::set<std::string> NamesOf(const std::string& text) {
    std::set<std::string> names;
    for (const std::string& word : WordsOf(text)) names.insert(InSmallLetters(word));
    return names;
}

std::int64_t NumberOf(const std::string& text, std::int64_t least, std::int64_t most) {
    std::int64_t number = 0;
    const char* end = text.c_str() + text.size();
    const auto [rest, error] = std::from_chars(text.c_str(), end, number);
    if (error != std::errc() || rest != end || number < least || number > most) {
        throw Senseless("it is a number from " + std::to_string(least) + " to " +
                        std::to_string(most));
    }
    return number;
}

std::chrono::seconds SecondsOf(const std::string& text) {
    constexpr std::int64_t anHour = 3600;
    return std::chrono::seconds(NumberOf(text, 0, anHour));
}

std::int64_t RateOf(const std::string& text) {
    constexpr std::int64_t most = 100'000;
    return NumberOf(text, 1, most);
}

std::string PathOf(const std::string& text) {
    if (!text.starts_with('/')) throw Senseless("it is a path that begins at /");
    return text;
}

std::string PathOrNone(const std::string& text) {
    return text.empty() || text == "none" ? "" : PathOf(text);
}

std::vector<std::string> AddressesOf(const std::string& text) {
    if (text == "none") return {};
    return WordsOf(text);
}

// As browsers write it (RFC 6454 6.2).
std::set<std::string> OriginsOf(const std::string& text) {
    std::set<std::string> origins = NamesOf(text);
    for (const std::string& origin : origins) {
        const std::size_t host = origin.find("://");
        const bool known = origin.starts_with("http://") || origin.starts_with("https://");
        if (!known || origin.size() == host + 3 || origin.find('/', host + 3) != origin.npos)
            throw Senseless("an origin is like https://till.example, with nothing after the name");
    }
    return origins;
}

std::string GroupOf(const std::string& text) {
    if (text.empty()) throw Senseless("it is the name of a group");
    return text;
}

// --- keys ----------------------------------------------------------------------------------------

struct KeyRow {
    Key key;
    std::function<void(Configuration&, const std::string&)> take;
};

std::vector<KeyRow> RowsOfWhoMay() {
    return {
        {{"Registers", "names, with blanks or commas between", "",
          "The registers that are served, by the names of their files in registers/; default is "
          "that of voltis.ini. Without a name, all of them."},
         [](auto& to, const auto& text) { to.registers = WordsOf(text); }},
        {{"Listen", "ADDRESS:PORT, several with blanks between, or none", "127.0.0.1:8631",
          "Where callers of the network arrive. Everybody needs a token there; on another address "
          "than those of this machine alone, Certificate and Key as well. It does not count where "
          "systemd opens a socket of the network."},
         [](auto& to, const auto& text) { to.listen = AddressesOf(text); }},
        {{"Socket", "a path, or none", "/run/voltisd/voltisd.sock",
          "The Unix socket for programs on this machine. It does not count where systemd opens "
          "one, as voltisd.socket does."},
         [](auto& to, const auto& text) { to.socket = PathOrNone(text); }},
        {{"Group", "the name of a group", "dialout",
          "Whose accounts may use the Unix socket; they need no token."},
         [](auto& to, const auto& text) { to.group = GroupOf(text); }},
        {{"Hosts", "names, with blanks or commas between", "",
          "The names and addresses by which callers of the network know this machine, besides "
          "localhost; a request for another is refused, so that no page in a browser reaches the "
          "service under a name of its own."},
         [](auto& to, const auto& text) { to.hosts = NamesOf(text); }},
        {{"Origins", "origins, with blanks between", "",
          "Pages of these origins may use the service from a browser: https://till.example"},
         [](auto& to, const auto& text) { to.origins = OriginsOf(text); }},
        {{"Certificate", "the path of a PEM file", "",
          "For TLS at all addresses of Listen, with the certificates that lead to its root."},
         [](auto& to, const auto& text) { to.certificate = PathOrNone(text); }},
        {{"Key", "the path of a PEM file", "", "Of the certificate, without a password."},
         [](auto& to, const auto& text) { to.key = PathOrNone(text); }},
        {{"Tokens", "a path", "/etc/voltis/tokens", "The file of `voltisctl token`."},
         [](auto& to, const auto& text) { to.tokens = PathOf(text); }},
    };
}

// The numbers of seconds are those that a shop's till and its cashier have patience for.
std::vector<KeyRow> RowsOfHowMuch() {
    return {
        {{"LongestQueue", "a number of jobs, 1 to 100000", "100",
          "So many jobs wait for one register at most; further ones are refused."},
         [](auto& to, const auto& text) { to.longestQueue = NumberOf(text, 1, 100000); }},
        {{"LongestWait", "a number of seconds, 0 to 3600", "60",
          "So long a request may wait for its result at most, whatever it prefers."},
         [](auto& to, const auto& text) { to.longestWait = SecondsOf(text); }},
        {{"Patience", "a number of seconds, 0 to 3600", "30",
          "So long a job waits for a register that another program uses, before it is told that "
          "nothing was printed."},
         [](auto& to, const auto& text) { to.patience = SecondsOf(text); }},
        {{"RatePerAddress", "a number of requests, 1 to 100000", "200",
          "So many requests a second from one address in the long run, and twice as many at once; "
          "further ones are refused. By the Unix socket nobody is counted."},
         [](auto& to, const auto& text) { to.ratePerAddress = RateOf(text); }},
        {{"RatePerToken", "a number of requests, 1 to 100000", "100",
          "Likewise with one token, its sessions in browsers included."},
         [](auto& to, const auto& text) { to.ratePerToken = RateOf(text); }},
    };
}

const std::vector<KeyRow>& Rows() {
    static const std::vector<KeyRow> rows = [] {
        std::vector<KeyRow> all = RowsOfWhoMay();
        std::ranges::move(RowsOfHowMuch(), std::back_inserter(all));
        return all;
    }();
    return rows;
}

const KeyRow* RowOf(const std::string& name) {
    for (const KeyRow& row : Rows()) {
        if (strcasecmp(name.c_str(), row.key.name) == 0) return &row;
    }
    return nullptr;
}

// --- the file ------------------------------------------------------------------------------------

[[noreturn]] void Fail(const std::string& file, std::size_t line, const std::string& what) {
    throw ConfigurationError(file + ":" + std::to_string(line) + ": " + what);
}

void Take(const KeyRow& row, const std::string& value, Configuration& to) {
    try {
        row.take(to, value);
    } catch (const Senseless& why) {
        throw Senseless(std::string(row.key.name) + "=" + value + ": " + why.what());
    }
}

Configuration Defaults() {
    Configuration configuration;
    for (const KeyRow& row : Rows()) Take(row, row.key.defaultValue, configuration);
    return configuration;
}

class Reading {
  public:
    explicit Reading(const std::string& file) : file_(file) {}

    void Line(const IniStoreLine& line) {
        const std::string key(line.key);
        if (key.starts_with('#') || key.starts_with(';')) return;
        if (strcasecmp(std::string(line.section).c_str(), section) != 0)
            Fail(file_, line.number, key + "= is outside of the section [voltisd]");
        const KeyRow* row = RowOf(key);
        if (row == nullptr) Fail(file_, line.number, "there is no key " + key + "=");
        if (line.value.size() >= iniStoreMaxValue)  // perhaps it was longer
            Fail(file_, line.number, key + "= has more than 254 characters");
        const auto [before, isNew] = lines_.emplace(row, line.number);
        if (!isNew)
            Fail(file_, line.number,
                 key + "= is in line " + std::to_string(before->second) + " already");
        try {
            Take(*row, std::string(line.value), to_);
        } catch (const Senseless& why) {
            Fail(file_, line.number, why.what());
        }
    }

    Configuration End() {
        if (to_.certificate.empty() != to_.key.empty())
            throw ConfigurationError(file_ + ": Certificate= and Key= go together");
        return to_;
    }

  private:
    std::string file_;
    Configuration to_ = Defaults();
    std::map<const KeyRow*, std::size_t> lines_;
};

runner::IniText Parsed(const std::string& text, const std::string& file) {
    try {
        return {text, section};
    } catch (const std::runtime_error& wrong) {
        throw ConfigurationError(file + ": " + wrong.what());
    }
}

}  // namespace

const std::vector<Key>& AllKeys() {
    static const std::vector<Key> keys = [] {
        std::vector<Key> all;
        std::ranges::transform(Rows(), std::back_inserter(all), &KeyRow::key);
        return all;
    }();
    return keys;
}

Configuration ConfigurationOf(const std::string& text, const std::string& file) {
    Reading reading(file);
    const runner::IniText ini = Parsed(text, file);
    for (const IniStoreLine& line : ini.Lines()) reading.Line(line);
    return reading.End();
}

Configuration ReadConfiguration(const std::string& file) {
    std::error_code error;
    const fs::file_status status = fs::status(file, error);
    if (status.type() == fs::file_type::not_found) return Defaults();
    try {
        return ConfigurationOf(runner::ReadFile(file), file);
    } catch (const ConfigurationError&) {
        throw;
    } catch (const std::runtime_error& failure) {
        throw ConfigurationError(failure.what());
    }
}

}  // namespace voltisd
