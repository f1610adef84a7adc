// The catalogue as the page docs/errors.md.
#pragma once

#include <string>

namespace explain {

std::string Page();

}  // namespace explain
