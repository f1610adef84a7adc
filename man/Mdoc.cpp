// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "man/Mdoc.h"

#include <cctype>
#include <cstddef>
#include <sstream>
#include <vector>

namespace manual {

namespace {

struct ManualPage {
    std::string_view page;    // of docs/
    std::string_view manual;  // that says the same
};

constexpr ManualPage manualPages[] = {
    {"docs/reference.md", "voltis.ini(5)"},
    {"docs/command-language.md", "voltis-commands(5)"},
    {"docs/errors.md", "voltis-errors(7)"},
};

std::string WithManualPages(std::string_view text) {
    std::string named(text);
    for (const ManualPage& row : manualPages)
        for (std::size_t at = 0; (at = named.find(row.page, at)) != std::string::npos;)
            named.replace(at, row.page.size(), row.manual);
    return named;
}

// A hyphen-minus that is typed, a backslash, quotes: as they are, in every output.
std::string Plain(char c) {
    switch (c) {
        case '\\':
            return "\\e";
        case '-':
            return "\\-";
        case '\'':
            return "\\(aq";
        case '"':
            return "\\(dq";
        case '^':
            return "\\(ha";
        case '~':
            return "\\(ti";
        default:
            return {c};
    }
}

bool IsLetter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

// Not the one of an option, which is typed.
bool IsHyphen(std::string_view text, std::size_t at) {
    return text[at] == '-' && at != 0 && at + 1 < text.size() && IsLetter(text[at - 1]) &&
           IsLetter(text[at + 1]);
}

// What is in backticks is typed.
std::string Marked(std::string_view text) {
    std::string marked;
    bool typed = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '`') {
            typed = !typed;
            marked += typed ? "\\(oq" : "\\(cq";
        } else {
            marked += !typed && IsHyphen(text, i) ? "-" : Plain(text[i]);
        }
    }
    return marked;
}

std::string WithoutClosing(std::string word) {
    for (const std::string_view closing : {")", "\\(cq", "\\(dq"})
        while (word.ends_with(closing)) word.resize(word.size() - closing.size());
    return word;
}

bool EndsSentence(const std::string& word, const std::string& next) {
    const std::string bare = WithoutClosing(word);
    const bool stop = bare.ends_with('.') || bare.ends_with('?') || bare.ends_with('!');
    return stop && std::islower(static_cast<unsigned char>(next.front())) == 0;
}

// Words joined to lines of the source.
class Lines {
  public:
    void Add(const std::string& word) {
        constexpr std::size_t width = 79;
        if (!line_.empty() && line_.size() + 1 + word.size() > width) End();
        if (line_.empty())
            line_ = word.starts_with('.') ? "\\&" + word : word;  // it would be a macro
        else
            line_ += " " + word;
    }
    void End() {
        if (!line_.empty()) all_ += line_ + "\n";
        line_.clear();
    }
    const std::string& All() const { return all_; }

  private:
    std::string all_, line_;
};

std::vector<std::string> WordsIn(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> words;
    for (std::string word; in >> word;) words.push_back(word);
    return words;
}

}  // namespace

std::string Argument(std::string_view text) {
    std::string argument = "\"\\&";
    for (const char c : text) argument += Plain(c);
    return argument + "\\&\"";
}

std::string Prose(std::string_view text) {
    const std::vector<std::string> words = WordsIn(Marked(WithManualPages(text)));
    Lines lines;
    for (std::size_t i = 0; i < words.size(); ++i) {
        lines.Add(words[i]);
        if (i + 1 < words.size() && EndsSentence(words[i], words[i + 1])) lines.End();
    }
    lines.End();
    return lines.All();
}

std::string Sentence(std::string_view text) {
    std::string sentence(text);
    if (sentence.empty()) return sentence;
    sentence.front() =
        static_cast<char>(std::toupper(static_cast<unsigned char>(sentence.front())));
    const char last = sentence.back();
    const bool ended = last == '.' || last == '?' || last == '!';
    return ended ? sentence : sentence + ".";
}

}  // namespace manual
