// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "ctl/Token.h"

#include <algorithm>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "companion/runner/Profile.h"
#include "companion/tokens/File.h"
#include "ctl/Table.h"
#include "ctl/UsageError.h"

namespace {

using Json = nlohmann::ordered_json;
using tokens::Token;

constexpr int exitNoSuchToken = 1;

constexpr char tokenFooter[] =
    "A program shows its token with every request, as Authorization: Bearer TOKEN. add prints "
    "it once; the file keeps only its hash. Scopes: print (hand in jobs and withdraw them), read "
    "(see jobs and registers), resolve (decide what became of a job in doubt). A change holds "
    "from the next request on.\n"
    "The exit code is 0; 1 when there is no token of the name to revoke."
    "\n\nExample:\n  voltisctl token add \"Till 1\" --scope print,read";

struct TokenOptions {
    std::string action;
    std::string name;
    std::string scopes;
    std::string registerName;
    std::string file = tokens::defaultFile;
    bool json = false;
};

// --- add -----------------------------------------------------------------------------------------

tokens::NewToken WantedBy(const TokenOptions& options) {
    const std::string mistake = tokens::MistakeInName(options.name);
    if (!mistake.empty()) throw UsageError(mistake);
    const auto scopes = tokens::ScopesIn(options.scopes);
    if (!scopes)
        throw UsageError("--scope wants some of print,read,resolve, not '" + options.scopes + "'");
    tokens::NewToken wanted{options.name, *scopes, {}};
    if (options.registerName.empty()) return wanted;
    if (!runner::IsRegisterName(options.registerName))
        throw UsageError("'" + options.registerName + "' is no name of a register");
    wanted.registerName = options.registerName;
    return wanted;
}

// A token that nobody has seen is of no use to anybody.
int AddToken(const TokenOptions& options) {
    const std::string secret = tokens::Add(options.file, WantedBy(options));
    if ((std::cout << secret << '\n').flush()) {
        std::cerr << "voltisctl: keep it now, it is not shown again\n";
    } else {
        tokens::Revoke(options.file, options.name);
    }
    return 0;
}

// --- list ----------------------------------------------------------------------------------------

Json JsonOf(const Token& token) {
    Json scopes = Json::array();
    for (const http::Scope scope : token.scopes) scopes.push_back(Word(scope));
    return {{"name", token.name},
            {"scopes", scopes},
            {"register", token.registerName ? Json(*token.registerName) : Json()},
            {"made", token.made}};
}

void PrintTokens(const std::vector<Token>& all) {
    std::vector<TableRow> table = {{"NAME", "SCOPES", "REGISTER", "MADE"}};
    for (const Token& token : all)
        table.push_back({token.name, tokens::ScopesText(token.scopes),
                         token.registerName.value_or("all"), token.made});
    if (all.empty()) {
        std::cout << "no tokens\n";
    } else {
        PrintTable(table);
    }
}

int ListTokens(const TokenOptions& options) {
    const std::vector<Token> all = tokens::Read(options.file);
    if (!options.json) {
        PrintTokens(all);
        return 0;
    }
    Json json = Json::array();
    for (const Token& token : all) json.push_back(JsonOf(token));
    std::cout << json.dump(2) << '\n';
    return 0;
}

// --- revoke --------------------------------------------------------------------------------------

int RevokeToken(const TokenOptions& options) {
    if (tokens::Revoke(options.file, options.name)) {
        std::cout << "revoked\n";
        return 0;
    }
    std::cerr << "voltisctl: no token '" << Shown(options.name) << "' in '" << options.file
              << "'\n";
    return exitNoSuchToken;
}

// --- which of them -------------------------------------------------------------------------------

struct ActionRow {
    const char* name;
    bool wantsName, wantsScope;
    bool takesRegister, takesJson;
    int (*act)(const TokenOptions& options);
};

constexpr ActionRow actionRows[] = {
    {"add", true, true, true, false, AddToken},
    {"list", false, false, false, true, ListTokens},
    {"revoke", true, false, false, false, RevokeToken},
};

void CheckWord(bool given, bool wanted, bool taken, const ActionRow& row, const char* word) {
    const std::string action = std::string("token ") + row.name;
    if (wanted && !given) throw UsageError(action + " needs " + word);
    if (given && !taken) throw UsageError(action + " takes no " + word);
}

int ActOnTokens(const TokenOptions& options) {
    const ActionRow& row = *std::ranges::find(actionRows, options.action, &ActionRow::name);
    CheckWord(!options.name.empty(), row.wantsName, row.wantsName, row, "NAME");
    CheckWord(!options.scopes.empty(), row.wantsScope, row.wantsScope, row, "--scope");
    CheckWord(!options.registerName.empty(), false, row.takesRegister, row, "--register");
    CheckWord(options.json, false, row.takesJson, row, "--json");
    return row.act(options);
}

}  // namespace

std::function<int()> BindToken(CLI::App& command) {
    const auto options = std::make_shared<TokenOptions>();
    command.add_option("ACTION", options->action, "What to do")
        ->required()
        ->check(CLI::IsMember({"add", "list", "revoke"}));
    command
        .add_option("NAME", options->name,
                    "The token's name: of the till, the tablet or the person")
        ->type_name("");
    command
        .add_option("--scope", options->scopes,
                    "What it may do: print, read, resolve, with commas between")
        ->type_name("SCOPES");
    command
        .add_option("--register", options->registerName,
                    "The only register that it may use (default: all)")
        ->type_name("NAME");
    command.add_option("--file", options->file, "The file of tokens")
        ->type_name("FILE")
        ->capture_default_str();
    command.add_flag("--json", options->json, "For list: one JSON array");
    command.footer(tokenFooter);
    return [options] { return ActOnTokens(*options); };
}
