// A folder of its own for one test, removed with everything in it at the end.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

class TempDir {
  public:
    TempDir() : path_((std::filesystem::temp_directory_path() / "voltis-XXXXXX").string()) {
        if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no folder " + path_);
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return path_; }
    /// The path of a file of this name in the folder; nothing is created.
    std::string File(const std::string& name) const { return path_ + "/" + name; }
    /// Writes the bytes as they are and returns the path.
    std::string Write(const std::string& name, const std::string& bytes) const {
        std::ofstream(File(name), std::ios::binary) << bytes;
        return File(name);
    }

  private:
    std::string path_;
};

/// All bytes of a file; an absent file reads as empty.
inline std::string ReadWholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream all;
    all << in.rdbuf();
    return all.str();
}
