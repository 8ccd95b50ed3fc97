// The frame around every exported entry point that returns a code: nothing
// thrown inside may reach the host. Failures are caught in three classes and
// reported as one line on standard output (then flushed):
//   JEx                    "Murmex error: " + message
//   other std::exception   "Murmex exception: " + what()
//   anything else          "Murmex unknown error"
// and the entry point returns 1; otherwise it returns 0. The host's progress
// callback hears nothing of a failure.
//
// Objects built inside the body are destroyed while the exception unwinds,
// before the line is printed; objects the caller owns outside the body are
// destroyed after it, when the entry point returns.
#pragma once

#include <cxxabi.h>

#include <exception>

#include "base/ex.h"

namespace dn_entry {

void reportError(const JEx& e) noexcept;
void reportException(const std::exception& e) noexcept;
void reportUnknown() noexcept;

// Runs body() and turns what it throws into the line above and a 1.
template <class Body>
int guard(Body&& body)
{
    try {
        body();
        return 0;
    } catch (const JEx& e) {
        reportError(e);
    } catch (const std::exception& e) {
        reportException(e);
    } catch (abi::__forced_unwind&) {
        // The host cancelled its own thread while we ran: the unwinding must
        // go on, or the process aborts. Not a failure of ours to report.
        throw;
    } catch (...) {
        reportUnknown();
    }
    return 1;
}

}  // namespace dn_entry
