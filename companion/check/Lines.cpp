// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/check/Lines.h"

#include <unistd.h>

#include <array>
#include <cstdlib>

#include "DriverException.h"

namespace check {

namespace {

[[noreturn]] void FailOn(const char* what, const std::string& name) {
    throw FileError(GetSystemErrorMessage(std::string(what) + " file '" + name + "'"));
}

File Open(const std::string& name) {
    File file(name == "-" ? fdopen(dup(STDIN_FILENO), "r") : fopen(name.c_str(), "r"));
    if (!file) FailOn("Can't open", name);
    return file;
}

File Copied(FILE* from, const std::string& name) {
    File copy(tmpfile());
    if (!copy) FailOn("Can't copy", name);
    std::array<char, BUFSIZ> block{};
    while (const std::size_t size = fread(block.data(), 1, block.size(), from)) {
        if (fwrite(block.data(), 1, size, copy.get()) != size) FailOn("Can't copy", name);
    }
    if (ferror(from) != 0) FailOn("Can't read", name);
    if (fflush(copy.get()) != 0) FailOn("Can't copy", name);
    if (fseek(copy.get(), 0, SEEK_SET) != 0) FailOn("Can't read", name);
    return copy;
}

// Standard input may be a file that somebody has read a part of.
bool CanBeReadTwice(FILE* file) {
    return ftell(file) == 0 && fseek(file, 0, SEEK_SET) == 0;
}

}  // namespace

bool Line::IsCommand() const {
    const std::size_t begin = text.find_first_not_of(" \t\r\n");
    return begin != std::string::npos && text[begin] != '#';
}

Lines::Lines(const std::string& fileName) : name_(fileName), file_(Open(fileName)) {
    if (!CanBeReadTwice(file_.get())) file_ = Copied(file_.get(), name_);
}

bool Lines::Next(Line& line) {
    if (!GetLine(file_.get(), line.text)) {
        if (ferror(file_.get()) != 0) FailOn("Can't read", name_);
        return false;
    }
    constexpr std::size_t longestPiece = 1023;
    line.number = here_.number + 1;
    line.pieceOf = here_.inLine;
    const bool inLine = !line.text.ends_with('\n');
    line.hasPieces = inLine && line.text.size() == longestPiece;
    here_ = {here_.offset + static_cast<long>(line.text.size()), line.number, inLine};
    return true;
}

void Lines::GoTo(const Mark& mark) {
    if (fseek(file_.get(), mark.offset, SEEK_SET) != 0) FailOn("Can't read", name_);
    here_ = mark;
}

}  // namespace check
