// The journal of jobs.
#pragma once

#include <chrono>
#include <string>

#include "companion/doctor/Finding.h"

namespace doctor {

/// The journal at that path, which is not made when it is missing; and its jobs that wait for
/// somebody.
Findings CheckJournal(const std::string& path,
                      std::chrono::system_clock::time_point now = std::chrono::system_clock::now());

}  // namespace doctor
