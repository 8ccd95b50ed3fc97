// The one error type of the host-side code: a one-line, user-facing message
// that names the file concerned.
#pragma once

#include <stdexcept>

namespace murmex_host {

struct HostError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

}  // namespace murmex_host
