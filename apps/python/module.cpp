// The murmex Python module: noise profiles and noise removal on numpy arrays,
// over the library's C interface.
#include <map>
#include <string>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include "denoise.h"
#include "engine_run.h"
#include "profile.h"
#include "settings.h"

namespace py = pybind11;
using namespace murmex_python;

namespace {

static_assert(DnHostScaleCount == 8, "denoise takes one keyword per host scale");

using Scale = std::optional<float>;

const char* kModuleDoc = R"(Photographic noise reduction on numpy arrays.

murmex.denoise removes noise from an image held in a numpy array, with a noise
profile (murmex.Profile) that describes the camera's noise; murmex.Profile
measures one from an image, or loads and saves .dnp files.

    import murmex
    profile = murmex.Profile.measure(image)
    clean = murmex.denoise(image, profile, lum_strength=12)

Jobs run one at a time in the process; while one runs, the GIL is released. A job
started from the progress function of another raises RuntimeError.)";

const char* kImageDoc = R"(image: an H x W x 3 (RGB), H x W x 4 (RGB and alpha) or H x W (grey)
    array; H x W x 1 and H x W x 2 (grey and alpha) are taken as well.
    dtype uint16 (full scale 65535), uint8 (scaled by 257 for the engine),
    float32 or float64 (0 to 1; values below 0 are read as 0, above 1 as 1,
    NaN as 0). Any strides. Grey is seen as R = G = B; alpha is ignored.)";

const char* kResultDoc = R"(
    The result has the image's dtype: uint8 is rounded back from the engine's
    16 bits, floats are multiples of 1/65535. Grey comes back as the rounded
    mean of the engine's R, G and B; alpha is passed through untouched. No copy
    of the image is made unless out overlaps it.)";

std::string denoiseDoc()
{
    std::string doc = R"(Removes noise from an image and returns the result, an array of the
image's shape and dtype (out when given).

)";
    doc += kImageDoc;
    doc += kResultDoc;
    doc += R"(
profile: a murmex.Profile, a path to a .dnp file, or None to measure a profile
    from the image itself.

settings: None, or "auto" to choose the settings for this image from its noise
    and the profile (one measured from the image when profile is None), as
    `murmex denoise --settings auto` does; the keywords below that are given
    then replace the chosen values they name.

The settings, on the host scales (murmex.SCALES); those not given are
murmex.DEFAULT_SETTINGS, or the chosen ones with settings="auto" (pass
**profile.settings to use those stored in a profile; values off a scale raise
ValueError; None counts as not given):
)";
    for (int i = 0; i < DnHostScaleCount; ++i)
        doc += std::string(scaleKeyword(i)) + ": " + scaleDoc(i) + "\n";
    doc += std::string(kSuppressHalos) + ": keep sharpening from forming halos along edges (default " +
           (defaultSettings().suppressHalos ? "True" : "False") + ")\n";
    doc += std::string(kLowFrequency) + ": also filter the coarsest noise (default " +
           (defaultSettings().lowFrequency ? "True" : "False") + ")\n";
    doc += R"(
threads: worker threads; None uses one per processor, 0 computes on the
    calling thread only (progress and cancelling then come once per vertical
    strip of the image). Every count gives the same pixels.
turbo: faster, slightly coarser.
progress: None, or a function progress(text, fraction) called on the calling
    thread with the step's text and the fraction of it done (0 to 1); returning
    True stops the job and raises murmex.Cancelled. It may not start another
    job (RuntimeError).
out: an array of the image's shape and dtype to write the result into; it may
    be the image itself.

The GIL is released while the engine runs. Ctrl-C (KeyboardInterrupt) stops
the job and is raised. Raises murmex.Error when the library fails (its message
included), TypeError and ValueError for unsuitable arguments. After a
cancelled or interrupted job, out holds a partly denoised image.)";
    return doc;
}

const char* kProfileDoc = R"(A noise profile: the camera's noise per channel, wavelet level and colour,
measured from flat patches of an image, with the filter settings stored with
it. Make one with Profile.measure, Profile.load or Profile.from_bytes.

bytes(profile) is the serialised profile (the .dnp file's contents);
Profile.from_bytes(bytes(profile)) gives it back. Profiles pickle.)";

py::bytes profileBytes(const Profile& p)
{
    const Profile::Block block = p.block();
    return py::bytes(reinterpret_cast<const char*>(block->data()), static_cast<py::ssize_t>(block->size()));
}

}  // namespace

PYBIND11_MODULE(murmex, m)
{
    m.doc() = kModuleDoc;
    m.attr("__version__") = MURMEX_VERSION;
    registerExceptions(m);
    m.attr("SCALES") = scalesDict();
    m.attr("DEFAULT_SETTINGS") = settingsDict(defaultSettings());

    py::class_<Profile>(m, "Profile", kProfileDoc)
        .def_static("measure", &Profile::measure, py::arg("image"), py::arg("relaxed") = false, py::kw_only(),
                    py::arg("settings") = py::none(), py::arg("progress") = py::none(),
                    (std::string("Measures a noise profile from an image: the library searches it for flat "
                                 "patches and measures their noise.\n\n") +
                     kImageDoc +
                     "\nrelaxed: accept less uniform patches.\nsettings: None, or \"auto\" to store in the "
                     "profile the settings chosen for this image from its noise and the profile, as `murmex "
                     "profile --settings auto` does.\nprogress: as for murmex.denoise.\n"
                     "Raises murmex.Error when the library fails.")
                        .c_str())
        .def_static("load", &Profile::load, py::arg("path"),
                    "Loads a .dnp profile file. Raises murmex.Error when the library cannot read it.")
        .def_static("from_bytes", &Profile::fromBytes, py::arg("data"),
                    "A profile from its serialised form (bytes(profile), or a .dnp file's contents). Raises "
                    "murmex.Error when the library cannot read it.")
        .def("save", &Profile::save, py::arg("path"),
             "Writes the profile, with its settings, as a .dnp file, whole or not at all: a save that fails "
             "leaves an existing file as it was. A symbolic link is followed. Raises murmex.Error when the "
             "library cannot write it.")
        .def("__bytes__", &profileBytes)
        .def_property_readonly("samples", &Profile::samples,
                               "The noise samples as a numpy structured array, one record per sample: the patch "
                               "(left, top, right, bottom; right and bottom exclusive; all 0 where the profile does not keep "
                               "it), its colour as y, cr, cb "
                               "(0 to 1, neutral chroma 0.5), as r, g, b (0 to 1) and as lab_l, lab_a, lab_b, and "
                               "its noise per wavelet level (0 the finest) as noise_y0..noise_y4, "
                               "noise_cr0..noise_cr4, noise_cb0..noise_cb4 (-1 where not measured).")
        .def_property(
            "settings", [](const Profile& p) { return settingsDict(p.settings()); },
            [](Profile& p, const py::handle& mapping) { p.updateSettings(mapping); },
            "The filter settings stored in the profile, as a dict of murmex.denoise's keywords "
            "(denoise(image, profile, **profile.settings) uses them). The dict is a copy: assign a dict to "
            "change them (only the names given change; values are checked against their scales).")
        .def_property(
            "header", &Profile::header, [](Profile& p, const py::handle& mapping) { p.updateHeader(mapping); },
            "The profile's descriptive header as a dict: the camera and shot it was measured from (maker, model, "
            "film, iso, multisampling, shutter_speed in seconds, exposure_comp in EV, megapixels, quality, "
            "sharpness, illuminant, contrast, saturation, temperature, color_space, author, comment), None where "
            "not recorded. The dict is a copy: assign a dict to change fields (only the names given change; None "
            "clears one).")
        .def("__repr__", &Profile::repr)
        .def(py::pickle(&profileBytes, [](const py::bytes& data) { return Profile::fromBytes(data); }));

    // The settings keywords: names, defaults and documented ranges all come
    // from the library's host-scale table, read here at import. A keyword
    // not given arrives as None (so that settings="auto" can tell which
    // values the caller named); the signature shows the default it stands for.
    const py::dict defaultValues = settingsDict(defaultSettings());
    std::map<std::string, std::string> shown;  // pybind11 copies them when the function is defined
    for (const auto& [name, value] : defaultValues)
        shown[py::str(name).cast<std::string>()] = py::repr(value).cast<std::string>();
    auto settingArg = [&](const char* name) { return py::arg_v(name, py::none(), shown.at(name).c_str()); };
    m.def(
        "denoise",
        [](const py::object& image, const py::object& profile, const py::object& settings, Scale s0, Scale s1,
           Scale s2, Scale s3, Scale s4, Scale s5, Scale s6, Scale s7, std::optional<bool> suppressHalos,
           std::optional<bool> lowFrequency, std::optional<int> threads, bool turbo, py::object progress,
           py::object out) {
            DenoiseOptions options;
            options.settings.automatic = automaticSettings(settings);
            options.settings.scales = {s0, s1, s2, s3, s4, s5, s6, s7};
            options.settings.suppressHalos = suppressHalos;
            options.settings.lowFrequency = lowFrequency;
            options.threads = threads;
            options.turbo = turbo;
            options.progress = std::move(progress);
            options.out = std::move(out);
            return denoise(image, profile, std::move(options));
        },
        py::arg("image"), py::arg("profile") = py::none(), py::kw_only(), py::arg("settings") = py::none(),
        settingArg(scaleKeyword(0)), settingArg(scaleKeyword(1)), settingArg(scaleKeyword(2)),
        settingArg(scaleKeyword(3)), settingArg(scaleKeyword(4)), settingArg(scaleKeyword(5)),
        settingArg(scaleKeyword(6)), settingArg(scaleKeyword(7)), settingArg(kSuppressHalos),
        settingArg(kLowFrequency), py::arg("threads") = py::none(), py::arg("turbo") = false, py::arg("progress") = py::none(),
        py::arg("out") = py::none(), denoiseDoc().c_str());
}
