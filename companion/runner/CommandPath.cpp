// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/CommandPath.h"

#include <algorithm>
#include <cstddef>
#include <sstream>

namespace runner {

namespace {

std::string NameIn(const std::string& path) {
    return path.substr(path.find_last_of('/') + 1);  // npos + 1 is 0
}

// As the driver has it: "/x" is an option, "/pos/x" a file.
bool IsOption(const std::string& argument) {
    return argument[0] == '-' || (argument[0] == '/' && argument.find('/', 1) == std::string::npos);
}

std::string Joined(const std::vector<std::string>& parts) {
    std::string path;
    for (const std::string& part : parts) path += "/" + part;
    return path.empty() ? "/" : path;
}

// Goes one step; on the way out of a folder notes it.
void Step(const std::string& part, std::vector<std::string>& parts, CommandPlace& place) {
    if (part.empty() || part == ".") return;
    if (part != "..") return parts.push_back(part);
    place.crossed.push_back(Joined(parts));
    if (!parts.empty()) parts.pop_back();
}

}  // namespace

std::string DriversPath(const std::string& commandFile) {
    std::string path = commandFile;
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

void CheckCommandPath(const std::string& commandFile) {
    const std::string name = NameIn(DriversPath(commandFile));
    if (name.empty() || name == "." || name == "..")
        throw RunError("'" + commandFile + "' is no command file");
    if (!IsOption(commandFile)) return;
    const std::string other = commandFile[0] == '-' ? "./" + commandFile : "/." + commandFile;
    throw RunError("the driver would take '" + commandFile + "' for an option; write '" + other +
                   "'");
}

std::string FolderOf(const std::string& commandFile) {
    const std::string path = DriversPath(commandFile);
    const std::size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

CommandPlace PlaceOf(const std::string& commandFile, const std::string& workDir) {
    const std::string path = DriversPath(commandFile);
    const bool absolute = path.starts_with('/');
    CommandPlace place;
    place.workDir = absolute ? "/" : workDir;
    place.name = NameIn(path);
    std::istringstream in((absolute ? "" : workDir + "/") +
                          path.substr(0, path.size() - place.name.size()));
    std::vector<std::string> parts;
    for (std::string part; std::getline(in, part, '/');) Step(part, parts, place);
    place.folder = Joined(parts);
    return place;
}

}  // namespace runner
