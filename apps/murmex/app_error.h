// The one error type of the murmex application's parts: a one-line,
// user-facing message that names the file concerned.
#pragma once

#include <stdexcept>

namespace murmex_app {

struct AppError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace murmex_app
