#include "denoise.h"

#include <thread>

#include <pybind11/numpy.h>

#include "array_image.h"
#include "engine_run.h"
#include "profile.h"
#include "settings.h"

namespace py = pybind11;

namespace murmex_python {

namespace {

struct DenoiseJob {
    const ArrayImage* in = nullptr;
    const ArrayImage* out = nullptr;
    EngineRun* run = nullptr;
};

void getRow(void* hostContext, int y, int xStart, int xEnd, unsigned short* pixels)
{
    static_cast<const DenoiseJob*>(hostContext)->in->readRow(y, xStart, xEnd, pixels);
}

void putRow(void* hostContext, int y, int xStart, int xEnd, unsigned short* pixels)
{
    static_cast<const DenoiseJob*>(hostContext)->out->writeRow(y, xStart, xEnd, pixels);
}

// The array that receives the result: out, checked against the image, or a
// new one.
py::array resultArray(const ArrayImage& image, const py::object& out)
{
    const py::array& in = image.array();
    if (out.is_none())
        return py::array(in.dtype(), std::vector<py::ssize_t>(in.shape(), in.shape() + in.ndim()));
    if (!py::isinstance<py::array>(out))
        throw py::type_error("out must be a numpy array, not " + py::repr(py::type::handle_of(out)).cast<std::string>());
    const py::array target = py::reinterpret_borrow<py::array>(out);
    if (!target.dtype().is(in.dtype()) && !target.dtype().equal(in.dtype()))
        throw py::type_error("out has dtype " + py::str(py::handle(target.dtype())).cast<std::string>() + "; the image has " +
                             py::str(py::handle(in.dtype())).cast<std::string>());
    if (!py::tuple(target.attr("shape")).equal(py::tuple(in.attr("shape"))))
        throw py::value_error("out has shape " + py::str(target.attr("shape")).cast<std::string>() +
                              "; the image has " + py::str(in.attr("shape")).cast<std::string>());
    if (!target.writeable())
        throw py::value_error("out is read-only");
    return target;
}

}  // namespace

py::object denoise(const py::handle& image, const py::handle& profile, DenoiseOptions options)
{
    ArrayImage in = ArrayImage::from(image, "image");
    const py::array result = resultArray(in, options.out);
    DnFilterParams params = defaultSettings();
    options.settings.applyGiven(params);
    const int threads = options.threads.value_or(static_cast<int>(std::max(1u, std::thread::hardware_concurrency())));
    if (threads < 0)
        throw py::value_error("threads must be 0 (the calling thread only) or more, not " + std::to_string(threads));
    EngineRun run(options.progress);

    Profile loaded;
    const Profile* chosen = nullptr;
    if (py::isinstance<Profile>(profile)) {
        chosen = &profile.cast<const Profile&>();
    } else if (!profile.is_none()) {
        if (!isPath(profile))
            throw py::type_error("profile must be a murmex.Profile, a path to a .dnp file or None, not " +
                                 py::repr(py::type::handle_of(profile)).cast<std::string>());
        loaded = Profile::load(profile);
        chosen = &loaded;
    }
    if (options.settings.automatic) {
        // The choice needs the profile before the run: one measured from the
        // image, as the library would measure it.
        if (!chosen) {
            loaded = Profile::measure(in.array(), false, py::none(), options.progress);
            chosen = &loaded;
        }
        chooseSettings(in, *chosen->block(), params);
        options.settings.applyGiven(params);
    }

    // The library reads rows again after it has written rows near them: a
    // result that overlaps the image gets a private copy of the image.
    if (py::module_::import("numpy").attr("may_share_memory")(in.array(), result).cast<bool>())
        in = ArrayImage::from(in.array().attr("copy")(), "image");
    const ArrayImage target = ArrayImage::from(result, "out");
    if (in.hasAlpha())
        result[py::make_tuple(py::ellipsis(), -1)] = in.array()[py::make_tuple(py::ellipsis(), -1)];

    params.profilePath = nullptr;
    params.buildProfile = chosen ? 0 : 1;
    params.saveProfile = 0;
    params.threads = threads;
    params.turbo = options.turbo ? 1 : 0;
    params.background = 0;
    params.width = in.width();
    params.height = in.height();

    DenoiseJob job{&in, &target, &run};
    // The job's own reference: another thread may give the profile new
    // settings while this one runs without the GIL.
    const Profile::Block profileBlock = chosen ? chosen->block() : nullptr;
    const unsigned char* block = profileBlock ? profileBlock->data() : nullptr;
    const int length = profileBlock ? static_cast<int>(profileBlock->size()) : 0;
    run.run(
        [&] {
            // A job without workers leaves its height behind as the
            // process-wide rows per request; every call here starts from the
            // library's default instead, as a fresh process would.
            DnSetRowsPerThread(-1);
            return DnRemoveNoise2(&job, &params, 0, 0, in.width(), in.height(), block, length, getRow, putRow,
                                  forwardProgress<DenoiseJob>);
        },
        "cannot denoise the image");
    return result;
}

}  // namespace murmex_python
