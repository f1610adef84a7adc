// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: 0BSD

// Sells goods on the fiscal register: each sale once, whatever happens in between.
//
//     g++ -std=c++20 sell.cpp -o sell && ./sell KIND ID NAME PRICE [NAME PRICE]...
//
// KIND is whole, or first, next and last for a receipt that is sent in several files. ID is the
// sale's own, in the records of the point of sale; the same sale always has the same one. Every
// sale has a folder with its command file; the number of its receipt is written there, too.
//
// Exit status: 0 printed, 1 a mistake of the program, 2 not printed: sell it again under the same
// ID, 101 somebody has to look at the register. VOLTISCTL names the program when it is not on PATH,
// SALES the folder of the sales, WAIT the seconds to wait for another till.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

using nlohmann::json;
using Words = std::vector<std::string>;

static const std::map<int, std::string> hints = {
    {100, "Is the register on and connected?"},
    {101, "Is the register busy?"},
    {104, "Turn the key to REG."},
    {105, "Finish or cancel the open receipt on the register."},
    {106, "Finish or cancel the open receipt on the register."},
    {150, "Is the register on and connected?"},
    {201, "Put in paper."},
    {202, "Put in paper."},
    {203, "The printer is out of order."},
};

static std::string Setting(const char* name, const char* otherwise) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : otherwise;
}

static std::string FolderOf(const std::string& sale) {
    return Setting("SALES", "sales") + "/" + sale;
}

// --- write ---------------------------------------------------------------------------------------

static std::string Quoted(const std::string& text) {
    std::string token = "\"";
    for (const char c : text) {
        const auto code = static_cast<unsigned char>(c);
        if (c == '"') token += '\\';
        token += code < 0x20 || code == 0x7F ? ' ' : c;  // a line feed would begin another command
    }
    if (token.back() == '\\') token += ' ';  // else the closing quote would be part of the text
    return token + '"';
}

static std::string CommandFile(const std::string& kind, const Words& goods) {
    std::string text = kind == "next" || kind == "last" ? "CONTINUE\n" : "";
    for (std::size_t i = 0; i < goods.size(); i += 2)
        text += "SALE: DEPTNR=1; NAME=" + Quoted(goods[i]) + "; AMOUNT=" + goods[i + 1] + "\n";
    return text + (kind == "whole" || kind == "last" ? "TENDER\n" : "CONTINUE\n");
}

// --- run and read --------------------------------------------------------------------------------

// What a program has written to its standard output; nothing when it could not be started.
static std::string OutputOf(Words words) {
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return "";
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    pid_t child = 0;
    const int failed =
        posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    std::string output;
    std::array<char, 4096> block{};
    for (ssize_t count = 0; (count = read(ends[0], block.data(), block.size())) > 0;)
        output.append(block.data(), static_cast<std::size_t>(count));
    close(ends[0]);
    if (failed == 0) waitpid(child, nullptr, 0);
    return output;
}

// Without a time limit: a run ends by itself, and one that is killed leaves its outcome open.
static json Run(const std::string& sale, const std::string& file) {
    const std::string told =
        OutputOf({Setting("VOLTISCTL", "voltisctl"), "run", file, "--job", sale, "--from", "utf-8",
                  "--wait", Setting("WAIT", "60"), "--json"});
    return json::parse(told, nullptr, false);
}

// --- decide --------------------------------------------------------------------------------------

static void Say(const std::string& sale, const std::string& what, const Words& lines = {}) {
    std::cout << sale << ": " << what << '\n';
    for (const std::string& line : lines)
        if (!line.empty()) std::cout << "  " << line << '\n';
}

static std::string MessageOf(const json& answer) {
    std::string message;
    if (!answer["driver"].is_null()) message = answer["driver"]["message"];
    message = answer.value("reason", message);
    std::ranges::replace(message, '\n', ' ');
    return message;
}

static std::string HintOf(const json& answer) {
    if (answer["driver"].is_null() || answer["driver"]["error_code"].is_null()) return "";
    const auto hint = hints.find(answer["driver"]["error_code"]);
    return hint == hints.end() ? "" : hint->second;
}

// A number, or a question mark for null.
static std::string Number(const json& value) {
    return value.is_null() ? "?" : value.dump();
}

static void DecidePrinted(const std::string& sale, const std::string& kind, const json& answer) {
    const json& receipt = answer["receipt"];
    const std::string number = Number(receipt["after"]);
    if (answer["exit_code"] != 0)
        Say(sale, "printed, receipt " + number + ", but: " + MessageOf(answer),
            {"Look at the register before the next sale."});
    else if (kind == "first" || kind == "next")
        Say(sale, "printed, receipt " + number + " is open, " +
                      receipt["subtotal"].get<std::string>() + " to pay");
    else
        Say(sale, "printed, receipt " + number);
    if (kind == "whole" || kind == "last")
        std::ofstream(FolderOf(sale) + "/receipt") << number << '\n';
}

static void DecideInDoubt(const std::string& sale, const json& answer) {
    const json& commands = answer["commands"];
    const std::string certain =
        "at least " + Number(commands["at_least"]) + " of " + Number(commands["of"]) + " commands";
    Say(sale, answer["verdict"].get<std::string>() + ", " + certain + ": " + MessageOf(answer),
        {HintOf(answer), "Look at the paper. Finish or cancel an open receipt on the register.",
         "Then: voltisctl resolve " + sale + " --as printed, or not-printed, --note WHY"});
}

static int Decide(const std::string& sale, const std::string& kind, const json& answer) {
    if (answer.is_discarded()) {  // not started, or ended before it could tell
        Say(sale, "no answer", {"Sell it again under the same ID."});
        return 2;
    }
    if (answer["verdict"] == "printed")
        DecidePrinted(sale, kind, answer);
    else if (answer["verdict"] != "not-printed")
        DecideInDoubt(sale, answer);
    else if (answer["exit_code"] == 1)
        Say(sale, "not printed, a mistake of the program: " + MessageOf(answer));
    else
        Say(sale, "not printed: " + MessageOf(answer),
            {HintOf(answer), "Then sell it again under the same ID."});
    return answer["exit_code"];
}

// -------------------------------------------------------------------------------------------------

static bool HasOnly(const std::string& text, const char* characters) {
    return !text.empty() && text.find_first_not_of(characters) == std::string::npos;
}

static bool IsId(const std::string& text) {
    return text.front() != '-' &&
           HasOnly(text, "-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
}

static bool IsPrice(const std::string& text) {
    const std::size_t point = std::min(text.find('.'), text.size());
    const std::string cents = text.substr(std::min(point + 1, text.size()));
    const bool whole = point == text.size();
    return point <= 6 && HasOnly(text.substr(0, point), "0123456789") &&
           (whole || (cents.size() <= 2 && HasOnly(cents, "0123456789")));
}

static std::string Mistake(const std::string& kind, const std::string& sale, const Words& goods) {
    const auto kinds = {"whole", "first", "next", "last"};
    if (std::ranges::find(kinds, std::string_view(kind)) == kinds.end())
        return "KIND is whole, first, next or last";
    if (sale.empty() || !IsId(sale)) return "ID has letters, digits and -";
    if (goods.empty() || goods.size() % 2 != 0) return "each NAME wants a PRICE";
    for (std::size_t i = 1; i < goods.size(); i += 2)
        if (!IsPrice(goods[i])) return "PRICE is up to 999999.99";
    return "";
}

int main(int count, char* words[]) {
    Words goods(words + 1, words + count);
    const std::string kind = count > 1 ? words[1] : "";
    const std::string sale = count > 2 ? words[2] : "";
    goods.erase(goods.begin(), goods.begin() + std::min(2, count - 1));
    const std::string mistake = Mistake(kind, sale, goods);
    if (!mistake.empty()) {
        std::cerr << "sell: " << mistake << '\n';
        return 1;
    }
    const std::string file = FolderOf(sale) + "/sale.txt";
    std::filesystem::create_directories(FolderOf(sale));
    std::ofstream(file) << CommandFile(kind, goods);
    return Decide(sale, kind, Run(sale, file));
}
