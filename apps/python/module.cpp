// The murmex Python module: noise profiles and noise removal on numpy arrays,
// over the library's C interface.
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

const char* kModuleDoc = R"(Photographic noise reduction on numpy arrays.

murmex.denoise removes noise from an image held in a numpy array, with a noise
profile (murmex.Profile) that describes the camera's noise; murmex.Profile
measures one from an image, or loads and saves .dnp files.

    import murmex
    profile = murmex.Profile.measure(image)
    clean = murmex.denoise(image, profile, lum_strength=12)

Jobs run one at a time in the process; while one runs, the GIL is released.)";

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

The settings, on the host scales (murmex.SCALES); the defaults are
murmex.DEFAULT_SETTINGS (pass **profile.settings to use those stored in a
profile; values off a scale raise ValueError):
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
    True stops the job and raises murmex.Cancelled.
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
                    py::arg("progress") = py::none(),
                    (std::string("Measures a noise profile from an image: the library searches it for flat "
                                 "patches and measures their noise.\n\n") +
                     kImageDoc +
                     "\nrelaxed: accept less uniform patches.\nprogress: as for murmex.denoise.\n"
                     "Raises murmex.Error when the library fails.")
                        .c_str())
        .def_static("load", &Profile::load, py::arg("path"),
                    "Loads a .dnp profile file. Raises murmex.Error when the library cannot read it.")
        .def_static("from_bytes", &Profile::fromBytes, py::arg("data"),
                    "A profile from its serialised form (bytes(profile), or a .dnp file's contents). Raises "
                    "murmex.Error when the library cannot read it.")
        .def("save", &Profile::save, py::arg("path"),
             "Writes the profile, with its settings, as a .dnp file. Raises murmex.Error when the library "
             "cannot write it.")
        .def("__bytes__",
             [](const Profile& p) {
                 return py::bytes(reinterpret_cast<const char*>(p.block().data()), p.block().size());
             })
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
        .def(py::pickle([](const Profile& p) {
                            return py::bytes(reinterpret_cast<const char*>(p.block().data()), p.block().size());
                        },
                        [](const py::bytes& data) { return Profile::fromBytes(data); }));

    // The settings keywords: names, defaults and documented ranges all come
    // from the library's host-scale table, read here at import.
    const DnFilterParams& defaults = defaultSettings();
    const py::dict defaultValues = settingsDict(defaults);
    auto scaleArg = [&](int i) { return py::arg(scaleKeyword(i)) = defaultValues[scaleKeyword(i)]; };
    m.def(
        "denoise",
        [](const py::object& image, const py::object& profile, float s0, float s1, float s2, float s3, float s4,
           float s5, float s6, float s7, bool suppressHalos, bool lowFrequency, std::optional<int> threads, bool turbo,
           py::object progress, py::object out) {
            DenoiseOptions options;
            const float values[DnHostScaleCount] = {s0, s1, s2, s3, s4, s5, s6, s7};
            for (int i = 0; i < DnHostScaleCount; ++i) {
                checkScale(i, values[i]);
                *DnHostScaleField(&options.settings, i) = values[i];
            }
            options.settings.suppressHalos = suppressHalos ? 1 : 0;
            options.settings.lowFrequency = lowFrequency ? 1 : 0;
            options.threads = threads;
            options.turbo = turbo;
            options.progress = std::move(progress);
            options.out = std::move(out);
            return denoise(image, profile, std::move(options));
        },
        py::arg("image"), py::arg("profile") = py::none(), py::kw_only(), scaleArg(0), scaleArg(1), scaleArg(2),
        scaleArg(3), scaleArg(4), scaleArg(5), scaleArg(6), scaleArg(7),
        py::arg(kSuppressHalos) = defaults.suppressHalos != 0, py::arg(kLowFrequency) = defaults.lowFrequency != 0,
        py::arg("threads") = py::none(), py::arg("turbo") = false, py::arg("progress") = py::none(),
        py::arg("out") = py::none(), denoiseDoc().c_str());
}
