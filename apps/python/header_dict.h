// The descriptive header of a profile as a Python dict: the camera and shot
// it was measured from (maker, model, iso, ...), None where not recorded.
#pragma once

#include <pybind11/pybind11.h>

#include "host/profile_header.h"

namespace murmex_python {

// Every field, in the profile format's order; absent ones are None.
pybind11::dict headerDict(const murmex_host::ProfileHeader& header);

// Stores the fields named in mapping (None clears one); the others keep
// their values. Unknown names and values of the wrong type raise TypeError.
void applyHeader(murmex_host::ProfileHeader& header, const pybind11::handle& mapping);

}  // namespace murmex_python
