#include "engine_run.h"

#include <mutex>

#include "host/engine_output.h"
#include "host/progress_text.h"
#include "host/replace_file.h"

namespace py = pybind11;

namespace murmex_python {

namespace {

// New references kept for the life of the process: the module cannot be
// unloaded, and releasing them at exit would run after the interpreter.
PyObject* errorClass = nullptr;
PyObject* cancelledClass = nullptr;

std::mutex& engineMutex()
{
    static std::mutex mutex;
    return mutex;
}

// Set while this thread runs a job. The progress function runs on that
// thread, holding the job lock; a job it started would wait for the lock
// for ever.
thread_local bool jobOnThisThread = false;

class JobOnThisThread {
public:
    JobOnThisThread() { jobOnThisThread = true; }
    ~JobOnThisThread() { jobOnThisThread = false; }
    JobOnThisThread(const JobOnThisThread&) = delete;
    JobOnThisThread& operator=(const JobOnThisThread&) = delete;
};

}  // namespace

py::object errorType()
{
    return py::reinterpret_borrow<py::object>(errorClass);
}

py::object cancelledType()
{
    return py::reinterpret_borrow<py::object>(cancelledClass);
}

void registerExceptions(py::module_& module)
{
    errorClass = PyErr_NewExceptionWithDoc(
        "murmex.Error",
        "A failure reported by the Murmex library (unreadable or corrupt profile, unwritable file, a job the "
        "engine refused). The message is the library's own, after what was being done.",
        nullptr, nullptr);
    cancelledClass = PyErr_NewExceptionWithDoc(
        "murmex.Cancelled",
        "The job was stopped because the progress function returned True. Rows finished before the stop stay "
        "written to out=.",
        nullptr, nullptr);
    if (!errorClass || !cancelledClass)
        throw py::error_already_set();
    module.add_object("Error", errorType());
    module.add_object("Cancelled", cancelledType());
}

void raiseError(const std::string& message)
{
    PyErr_SetString(errorClass, message.c_str());
    throw py::error_already_set();
}

EngineRun::EngineRun(py::object progress) : progress_(std::move(progress))
{
    if (!progress_.is_none() && !PyCallable_Check(progress_.ptr()))
        throw py::type_error("progress must be a callable progress(text, fraction) or None");
}

void EngineRun::run(const std::function<int()>& call, const std::string& context)
{
    if (jobOnThisThread) {
        PyErr_SetString(PyExc_RuntimeError,
                        (context + ": called from the progress function of a job that is still running; murmex runs "
                                   "one job at a time")
                            .c_str());
        throw py::error_already_set();
    }
    murmex_host::EngineResult result;
    {
        const JobOnThisThread job;
        py::gil_scoped_release released;
        std::lock_guard<std::mutex> oneJob(engineMutex());
        result = murmex_host::callEngine(call);
    }
    if (raised_) {
        py::error_already_set raised = std::move(*raised_);
        raised_.reset();
        throw raised;
    }
    if (result.failed())
        raiseError(context + ": " + murmex_host::replaceAll(result.message(), actualFile_, shownFile_));
    if (cancelled_) {
        PyErr_SetString(cancelledClass, (context + ": cancelled").c_str());
        throw py::error_already_set();
    }
}

void EngineRun::showFileAs(const std::string& actual, const std::string& shown)
{
    actualFile_ = actual;
    shownFile_ = shown;
}

int EngineRun::progressCallback(void* hostContext, const char* stepText, float fraction)
{
    return static_cast<EngineRun*>(hostContext)->report(stepText, fraction);
}

int EngineRun::report(const char* stepText, float fraction)
{
    if (raised_ || cancelled_)
        return 1;
    py::gil_scoped_acquire gil;
    try {
        if (PyErr_CheckSignals() != 0)
            throw py::error_already_set();
        if (!progress_.is_none()) {
            const std::string text = murmex_host::userStepText(stepText ? stepText : "");
            const py::object pyText = py::reinterpret_steal<py::object>(
                PyUnicode_DecodeUTF8(text.data(), static_cast<py::ssize_t>(text.size()), "replace"));
            if (!pyText)
                throw py::error_already_set();
            if (py::bool_(progress_(pyText, fraction)))
                cancelled_ = true;
        }
    } catch (py::error_already_set& e) {
        raised_ = std::move(e);
    }
    return raised_ || cancelled_ ? 1 : 0;
}

}  // namespace murmex_python
