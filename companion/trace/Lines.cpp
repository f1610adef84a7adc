#include "companion/trace/Lines.h"

namespace trace {

namespace {

constexpr std::size_t longestLine = 16384;

}  // namespace

void Lines::Keep(std::string_view part) {
    const std::size_t room = longestLine - begun_.size();
    tooLong_ = tooLong_ || part.size() > room;
    begun_.append(part.substr(0, room));
}

void Lines::EndLine(std::string_view part) {
    if (begun_.empty() && part.size() <= longestLine) return tracer_.Take(part);
    Keep(part);
    if (tooLong_) {
        tracer_.TakeTooLong(begun_);
    } else {
        tracer_.Take(begun_);
    }
    Forget();
}

void Lines::Take(std::string_view bytes) {
    while (!bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        if (end == std::string_view::npos) return Keep(bytes);
        EndLine(bytes.substr(0, end));
        bytes.remove_prefix(end + 1);
    }
}

void Lines::Finish() {
    if (!begun_.empty()) tracer_.TakeCut(begun_);
    Forget();
    tracer_.Finish();
}

void Lines::Forget() {
    begun_.clear();
    tooLong_ = false;
}

}  // namespace trace
