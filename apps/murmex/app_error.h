// The one error type of the murmex application's parts: a one-line,
// user-facing message that names the file concerned. It is the host
// library's error, so that failures raised there and here are caught alike.
#pragma once

#include "host/host_error.h"

namespace murmex_app {

// The application is built on the shared host library: its names are the
// application's own.
using namespace murmex_host;

using AppError = murmex_host::HostError;

}  // namespace murmex_app
