// Calls into the library from Python.
//
// A call runs with the GIL released, so that other Python threads go on
// while the engine works; the scanline callbacks run on the engine's threads
// and touch only memory. Progress comes on the calling thread, where the GIL
// is taken back for each report: the user's progress function is called
// there, and pending signals are checked, so that Ctrl-C cancels the job.
// The library writes its messages to standard output: file descriptor 1
// points at a temporary file for the call, the failure line becomes the
// message of murmex.Error and the library's other lines (diagnostics) are
// dropped, so that a script's standard output stays its own. Jobs run one at
// a time: the library's tuning values and standard output are process-wide.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include <pybind11/pybind11.h>

namespace murmex_python {

// murmex.Error and murmex.Cancelled, registered by the module.
pybind11::object errorType();
pybind11::object cancelledType();
void registerExceptions(pybind11::module_& module);

// Raises murmex.Error with message.
[[noreturn]] void raiseError(const std::string& message);

class EngineRun {
public:
    // progress: a callable (text, fraction) -> bool, or None.
    explicit EngineRun(pybind11::object progress);

    // Runs call (which calls one Dn function, passing progressCallback and
    // this as the progress context when it takes one) with the GIL released
    // and standard output captured. Afterwards, with the GIL held: re-raises
    // what the progress function or a signal raised; raises murmex.Cancelled
    // when the progress function asked to stop; raises murmex.Error with
    // context + ": " + the library's message when the call failed.
    void run(const std::function<int()>& call, const std::string& context);

    // From now on the library's messages name `shown` where they name
    // `actual`: a job that writes a temporary file in place of the user's.
    void showFileAs(const std::string& actual, const std::string& shown);

    // The library's progress callback; hostContext is the EngineRun.
    static int progressCallback(void* hostContext, const char* stepText, float fraction);

private:
    int report(const char* stepText, float fraction);

    pybind11::object progress_;
    std::string actualFile_, shownFile_;
    std::optional<pybind11::error_already_set> raised_;
    bool cancelled_ = false;
};

// A DnProgressCallback forwarding to the EngineRun that a job's context
// points at; for jobs whose context is their own record.
template <class Job>
int forwardProgress(void* hostContext, const char* stepText, float fraction)
{
    return EngineRun::progressCallback(static_cast<Job*>(hostContext)->run, stepText, fraction);
}

}  // namespace murmex_python
