// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

// The texts that a source file raises or logs, read from the source itself.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// A function whose argument is a message.
struct Raiser {
    std::string file;         // the end of a path; empty: any file
    std::string name;         // of the function or the exception
    std::size_t argument;     // the number of the message among the arguments, from 0
    std::string before = {};  // what the function itself puts around the message
    std::string after = {};
    std::string code = {};  // the error code's expression; empty: the first argument
};

struct RaisedText {
    std::string place;     // "src/ECR.cpp:70"
    std::string code;      // an expression
    std::string text;      // variable parts as {}; empty: an empty text
    std::string argument;  // as it is in the source, in one line
};

/// Every call in the text of that source file. Declarations count only with a default argument.
std::vector<RaisedText> TextsRaisedIn(const std::string& file, const std::string& source,
                                      const std::vector<Raiser>& raisers);

/// With neighbouring variable parts as one.
std::string WithoutNeighbours(std::string text);
