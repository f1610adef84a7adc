// Files of the desk's; whatever cannot be done is a std::runtime_error that names the file.
#pragma once

#include <optional>
#include <string>

namespace desk {

/// All bytes of a regular file of at most 64 MB; nothing when there is none.
std::optional<std::string> ReadIfAny(const std::string& path);

/// Puts a file with these bytes in the place of what was there, whole or not at all: a power
/// failure leaves the one or the other. A symbolic link stays one.
void ReplaceFile(const std::string& path, const std::string& bytes);

}  // namespace desk
