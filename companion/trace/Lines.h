// The bytes of a log as they come, cut into lines.
#pragma once

#include <string>
#include <string_view>

#include "companion/trace/Tracer.h"

namespace trace {

/// Hands the lines of a log to a tracer. A line longer than any that the driver writes is dropped
/// but for its beginning, so that a file of another kind takes no memory.
class Lines {
  public:
    explicit Lines(Tracer& tracer) : tracer_(tracer) {}

    void Take(std::string_view bytes);
    /// The log ends here, perhaps within a line.
    void Finish();
    /// The rest of the line will never come.
    void Forget();

  private:
    void Keep(std::string_view part);
    void EndLine(std::string_view part);

    Tracer& tracer_;
    std::string begun_;  // of a line whose end has not come
    bool tooLong_ = false;
};

}  // namespace trace
