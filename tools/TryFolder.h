// The private folder of one `voltisctl try`: command files, configuration and logs of the driver.
#pragma once

#include <string>
#include <vector>

/// The keys of the driver's configuration file, in their order of appearance.
class DriverSettings {
  public:
    /// A key that is there already gets the new value; letter case does not tell keys apart.
    void Set(const std::string& key, const std::string& value);
    /// Of "KEY=VALUE". std::runtime_error: it has another form.
    void Set(const std::string& keyAndValue);
    /// The value, empty for a key that is not there.
    std::string Get(const std::string& key) const;
    /// The whole file.
    std::string Text() const;

  private:
    struct Entry {
        std::string key;
        std::string value;
    };

    std::vector<Entry> entries_;
};

/// Removed with everything in it at the end. What cannot be read or written is a
/// std::runtime_error that names the file.
class TryFolder {
  public:
    explicit TryFolder(const DriverSettings& settings);
    ~TryFolder();
    TryFolder(const TryFolder&) = delete;
    TryFolder& operator=(const TryFolder&) = delete;

    std::string Files() const { return path_ + "/files"; }
    std::string Logs() const { return path_ + "/logs"; }
    std::string Ini() const { return path_ + "/voltis.ini"; }

    /// Puts a copy of the command file in place, takes an older result away, and answers the name
    /// of the copy in Files(). The driver takes a backslash for a slash, so the copy's name has an
    /// underscore instead.
    std::string Take(const std::string& commandFile);
    /// The result file that the last run left, empty when there is none.
    std::string Result() const;
    /// What the debug log has grown by since the last Take.
    std::string NewLog() const;

  private:
    std::string LogFile() const { return Logs() + "/dbgerror.log"; }

    std::string path_;
    std::string resultFile_;  // empty: none is configured
    std::string oldLog_;
};

/// All bytes of a file. std::runtime_error: it cannot be read.
std::string ReadFile(const std::string& path);
