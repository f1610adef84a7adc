// SPDX-FileCopyrightText: VOLTIS developers
// SPDX-License-Identifier: GPL-3.0-or-later

#include "companion/runner/Files.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace runner {

namespace {

[[noreturn]] void FailOn(const char* verb, const std::string& path) {
    const std::string reason = std::strerror(errno);
    throw std::runtime_error(std::string("cannot ") + verb + " '" + path + "' - " + reason);
}

struct CloseFile {
    void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

}  // namespace

std::string ReadFile(const std::string& path) {
    const File file(std::fopen(path.c_str(), "rbe"));
    if (!file) FailOn("read", path);
    std::string all;
    char block[4096];
    for (std::size_t count = 0; (count = std::fread(block, 1, sizeof block, file.get())) > 0;) {
        all.append(block, count);
    }
    if (std::ferror(file.get()) != 0) FailOn("read", path);
    return all;
}

void WriteFile(const std::string& path, const std::string& bytes) {
    const File file(std::fopen(path.c_str(), "wbe"));
    if (!file) FailOn("write", path);
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file.get()) == bytes.size();
    if (!written || std::fflush(file.get()) != 0) FailOn("write", path);
}

std::string ReadFileIfAny(const std::string& path) {
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    errno = error.value();
    if (!std::filesystem::status_known(status)) FailOn("read", path);
    return std::filesystem::is_regular_file(status) ? ReadFile(path) : "";
}

}  // namespace runner
