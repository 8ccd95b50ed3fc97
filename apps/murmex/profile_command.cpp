// murmex profile INPUT (-o FILE.dnp | --library [DIR]) [--relaxed]
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>

#include "auto_option.h"
#include "cli_commands.h"
#include "cli_engine.h"
#include "image_io.h"
#include "metadata.h"
#include "host/profile_header.h"
#include "host/profile_library.h"
#include "progress.h"
#include "safe_write.h"
#include "settings_options.h"

namespace murmex_app {

namespace {

namespace fs = std::filesystem;

struct ProfileOptions {
    std::string input;
    std::string output;
    std::string library;
    CLI::Option* libraryOption = nullptr;
    bool relaxed = false;
    ReadLimits limits;
    AutoSettingsOption autoSettings;
    OutputOptions output_;
};

void runProfile(const ProfileOptions& o)
{
    o.output_.apply();
    const bool toLibrary = o.libraryOption->count() > 0;
    if (toLibrary == !o.output.empty())
        throw UsageError("give either -o FILE.dnp or --library");

    Progress progress(Progress::modeFor(o.output_.quiet), displayName(o.input));
    const Image image = readImage(o.input, o.limits);
    CameraInfo camera;
    try {
        camera = readCameraInfo(o.input);
    } catch (const AppError&) {
    }
    const ProfileHeader header = headerFromCamera(camera, image.width, image.height);

    std::string target = o.output;
    if (toLibrary) {
        const std::string dir = profileLibraryDirectory(o.library.empty() ? std::nullopt : std::optional<std::string>(o.library));
        target = libraryPathFor(dir, header);
        std::error_code ec;
        fs::create_directories(fs::path(target).parent_path(), ec);
        if (ec)
            throw AppError("cannot create " + fs::path(target).parent_path().string() + ": " + ec.message());
    }
    if (sameFile(target, o.input))
        throw UsageError("refusing to overwrite the input " + o.input);
    // A name made in the library is not written through a link.
    const Links links = toLibrary ? Links::Refuse : Links::Follow;
    checkOutputTarget(target, links);

    const std::vector<uint8_t> measured = measureProfile(image, o.relaxed, progress, o.input);
    throwIfInterrupted();
    const std::vector<uint8_t> bytes = withProfileHeader(measured, header);
    DnFilterParams settings{};
    setDefaultSettings(settings);
    o.autoSettings.apply(image, bytes, settings, displayName(o.input), o.output_.verbose);
    saveProfile(target, bytes, settings, links);

    const size_t count = profileSamples(bytes, target).size();
    if (count == 0)
        progress.note("murmex: warning: no flat patches found in " + o.input +
                      "; the profile is empty" + (o.relaxed ? "" : " (try --relaxed)"));
    progress.finish();
    std::printf("%s (%zu samples)\n", target.c_str(), count);
}

}  // namespace

CommandRunner addProfileCommand(CLI::App& app)
{
    auto o = std::make_shared<ProfileOptions>();
    CLI::App* sub = app.add_subcommand("profile", "measure a noise profile from a photo");
    sub->footer(
        "The profile's header (maker, model, ISO, shutter speed, exposure compensation, light source,\n"
        "contrast, sharpness, saturation, colour space, megapixels) comes from the photo's EXIF. Its\n"
        "stored settings are the middle of every scale and no sharpening, or with --settings auto those\n"
        "chosen for this photo from its noise (change them with murmex set).\n"
        "With --library the profile is stored in the library as DIR/MAKER/MODEL/NAME.dnp, the name\n"
        "made from the header. Prints the written file and its number of samples.");
    sub->add_option("input", o->input, "the photo to measure")->required()->type_name("INPUT");
    CLI::Option* out = sub->add_option("-o,--output", o->output, "the profile file to write")->type_name("FILE.dnp");
    o->libraryOption = sub->add_option("--library", o->library,
                                       "store the profile in the library (default: $MURMEX_PROFILES, else "
                                       "$XDG_DATA_HOME/murmex/profiles)")
                           ->type_name("[DIR]")
                           ->expected(0, 1)
                           ->excludes(out);
    sub->add_flag("--relaxed", o->relaxed, "accept less uniform patches (for photos with few flat areas)");
    addReadLimits(*sub, o->limits);
    o->autoSettings.addTo(*sub, "store the settings chosen for the photo from its noise");
    o->output_.addTo(*sub);
    return [o] { runProfile(*o); };
}

}  // namespace murmex_app
