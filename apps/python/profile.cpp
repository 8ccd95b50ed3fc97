#include "profile.h"

#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <pybind11/numpy.h>

#include "array_image.h"
#include "engine_run.h"
#include "header_dict.h"
#include "host/file_kind.h"
#include "host/host_error.h"
#include "host/profile_samples.h"
#include "host/replace_file.h"
#include "settings.h"

namespace py = pybind11;

namespace murmex_python {

namespace {

// A file of its own in the temporary directory, removed with the object.
// The library has no call that reads the settings of a profile block, only
// of a file; blocks go through one of these.
class TempFile {
public:
    TempFile()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "murmex-XXXXXX.dnp").string();
        const int fd = mkstemps(pattern.data(), 4);
        if (fd < 0) {
            PyErr_SetFromErrno(PyExc_OSError);
            throw py::error_already_set();
        }
        close(fd);
        path_ = pattern;
    }
    ~TempFile() { std::remove(path_.c_str()); }
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    const std::string& path() const { return path_; }

    void write(const std::vector<uint8_t>& bytes) const
    {
        std::FILE* f = std::fopen(path_.c_str(), "wb");
        const bool ok = f && std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
        if ((f && std::fclose(f) != 0) || !ok) {
            PyErr_SetFromErrnoWithFilename(PyExc_OSError, path_.c_str());
            throw py::error_already_set();
        }
    }

private:
    std::string path_;
};

// Takes over a block from the library and releases it with DnFreeMemory.
std::vector<uint8_t> adopt(unsigned char* data, int length)
{
    std::vector<uint8_t> bytes;
    if (data && length > 0)
        bytes.assign(data, data + length);
    DnFreeMemory(data);
    return bytes;
}

struct ReadJob {
    DnFilterParams settings{};
    std::vector<uint8_t> block;
};

// DnReadProfile on path; context names what is read in messages.
ReadJob readProfileFile(const std::string& path, const std::string& context)
{
    ReadJob job;
    unsigned char* data = nullptr;
    int length = 0;
    EngineRun(py::none()).run([&] { return DnReadProfile(path.c_str(), &data, &length, &job.settings); }, context);
    job.block = adopt(data, length);
    return job;
}

std::vector<DnNoiseSample> readSamples(const std::vector<uint8_t>& block, const std::string& context)
{
    std::vector<DnNoiseSample> samples;
    EngineRun(py::none()).run(
        [&] {
            return DnReadProfileSamples2(&samples, block.data(), static_cast<int>(block.size()),
                                         murmex_host::collectProfileSample);
        },
        context);
    return samples;
}

murmex_host::ProfileHeader readHeader(const std::vector<uint8_t>& block)
{
    try {
        return murmex_host::readProfileHeader(block);
    } catch (const murmex_host::HostError& e) {
        raiseError(std::string("cannot read the profile header: ") + e.what());
    }
}

struct MeasureJob {
    const ArrayImage* image = nullptr;
    EngineRun* run = nullptr;
};

void readMeasured(void* hostContext, int y, int xStart, int xEnd, unsigned short* pixels)
{
    static_cast<const MeasureJob*>(hostContext)->image->readRow(y, xStart, xEnd, pixels);
}

}  // namespace

bool isPath(const py::handle& object)
{
    return py::isinstance<py::str>(object) || py::isinstance<py::bytes>(object) || py::hasattr(object, "__fspath__");
}

std::string fsPath(const py::handle& path)
{
    if (!isPath(path))
        throw py::type_error("a path must be a str or an os.PathLike, not " +
                             py::repr(py::type::handle_of(path)).cast<std::string>());
    return py::module_::import("os").attr("fsencode")(path).cast<std::string>();
}

std::string pathText(const py::handle& path)
{
    return py::module_::import("os").attr("fsdecode")(path).cast<std::string>();
}

Profile Profile::fromBlock(const std::vector<uint8_t>& block, const std::string& what)
{
    // Read once from memory first, so that a corrupt block is reported
    // without the temporary file's name.
    readSamples(block, "cannot read " + what);
    TempFile file;
    file.write(block);
    ReadJob read = readProfileFile(file.path(), "cannot read " + what);
    Profile p;
    p.take(std::move(read.block), read.settings, "cannot read " + what);
    return p;
}

Profile Profile::load(const py::handle& path)
{
    const std::string file = fsPath(path);
    const std::string context = "cannot load profile " + pathText(path);
    // Opening a pipe or a terminal could wait where Ctrl-C cannot reach.
    if (const std::string why = murmex_host::unreadableKind(file); !why.empty())
        raiseError(context + ": " + why);
    ReadJob read = readProfileFile(file, context);
    Profile p;
    p.take(std::move(read.block), read.settings, context);
    return p;
}

Profile Profile::fromBytes(const py::handle& data)
{
    if (py::isinstance<py::str>(data))
        throw py::type_error("Profile.from_bytes takes bytes, not str (Profile.load reads a file)");
    const py::buffer_info info = py::reinterpret_borrow<py::buffer>(data).request();
    const auto* first = static_cast<const uint8_t*>(info.ptr);
    const std::vector<uint8_t> block(first, first + info.size * info.itemsize);
    if (block.empty())
        raiseError("cannot read the profile data: it is empty");
    return fromBlock(block, "the profile data");
}

Profile Profile::measure(const py::handle& image, bool relaxed, const py::handle& settings, py::object progress)
{
    const bool automatic = automaticSettings(settings);
    const ArrayImage source = ArrayImage::from(image, "image");
    EngineRun run(std::move(progress));
    MeasureJob job{&source, &run};
    unsigned char* data = nullptr;
    int length = 0;
    run.run(
        [&] {
            return DnBuildProfile2(&job, &data, &length, readMeasured, source.width(), source.height(), relaxed ? 1 : 0,
                                   forwardProgress<MeasureJob>);
        },
        "cannot measure a noise profile");
    const std::vector<uint8_t> block = adopt(data, length);
    if (block.empty())
        raiseError("cannot measure a noise profile: the library returned no profile");
    Profile p = fromBlock(block, "the measured profile");
    if (automatic) {
        DnFilterParams params = defaultSettings();
        chooseSettings(source, *p.block_, params);
        p.storeSettings(params);
    }
    return p;
}

void Profile::save(const py::handle& path) const
{
    // Written whole or not at all, so that a failed save (a full disk)
    // leaves the file as it was. A link is followed, as open() would.
    const std::string file = fsPath(path);
    const std::string context = "cannot write profile " + pathText(path);
    DnFilterParams params = settings_;
    const Block block = block_;
    try {
        murmex_host::replaceFile(file, murmex_host::LinkAtName::Follow, context, [&](const std::string& temporary) {
            EngineRun run{py::none()};
            run.showFileAs(temporary, file);
            run.run([&] { return DnWriteProfile(temporary.c_str(), block->data(), static_cast<int>(block->size()),
                                                &params); },
                    context);
        });
    } catch (const murmex_host::HostError& e) {
        raiseError(e.what());
    }
}

void Profile::updateSettings(const py::handle& mapping)
{
    DnFilterParams params = settings_;
    applySettings(params, mapping);
    storeSettings(params);
}

void Profile::storeSettings(const DnFilterParams& settings)
{
    DnFilterParams params = settings;
    const Block block = block_;
    TempFile file;
    EngineRun(py::none()).run(
        [&] { return DnWriteProfile(file.path().c_str(), block->data(), static_cast<int>(block->size()), &params); },
        "cannot store the settings in the profile");
    ReadJob read = readProfileFile(file.path(), "cannot store the settings in the profile");
    take(std::move(read.block), read.settings, "cannot store the settings in the profile");
}

void Profile::take(std::vector<uint8_t>&& block, const DnFilterParams& settings, const std::string& context)
{
    std::vector<DnNoiseSample> samples = readSamples(block, context);
    block_ = std::make_shared<const std::vector<uint8_t>>(std::move(block));
    samples_ = std::move(samples);
    settings_ = settings;
}

py::dict Profile::header() const
{
    return headerDict(readHeader(*block_));
}

void Profile::updateHeader(const py::handle& mapping)
{
    murmex_host::ProfileHeader header = readHeader(*block_);
    applyHeader(header, mapping);
    std::vector<uint8_t> block;
    try {
        block = murmex_host::withProfileHeader(*block_, header);
    } catch (const murmex_host::HostError& e) {
        raiseError(std::string("cannot store the header in the profile: ") + e.what());
    }
    *this = fromBlock(block, "the profile with its new header");
}

std::string Profile::repr() const
{
    const murmex_host::ProfileHeader h = readHeader(*block_);
    std::string text = "<murmex.Profile";
    std::string camera = h.maker.value_or("");
    if (h.model)
        camera += (camera.empty() ? "" : " ") + *h.model;
    if (!camera.empty())
        text += " " + camera + ",";
    if (h.iso)
        text += " ISO " + std::to_string(*h.iso) + ",";
    return text + " " + std::to_string(sampleCount()) + " samples>";
}

py::dtype sampleDtype()
{
    // DnNoiseSample is 28 consecutive 32-bit words (the public header checks
    // its layout): the patch's four integers, then floats.
    static_assert(sizeof(DnNoiseSample) == 28 * 4 && offsetof(DnNoiseSample, y) == 4 * 4, "28 words");
    py::list names, formats, offsets;
    for (const char* name : {"left", "top", "right", "bottom", "y", "cr", "cb", "r", "g", "b", "lab_l", "lab_a", "lab_b"})
        names.append(name);
    for (const char* channel : {"y", "cr", "cb"})
        for (int level = 0; level < 5; ++level)
            names.append("noise_" + std::string(channel) + std::to_string(level));
    for (size_t i = 0; i < names.size(); ++i) {
        formats.append(i < 4 ? "i4" : "f4");
        offsets.append(4 * i);
    }
    py::dict layout;
    layout["names"] = names;
    layout["formats"] = formats;
    layout["offsets"] = offsets;
    layout["itemsize"] = sizeof(DnNoiseSample);
    return py::dtype::from_args(layout);
}

py::array Profile::samples() const
{
    py::array out(sampleDtype(), std::vector<py::ssize_t>{static_cast<py::ssize_t>(samples_.size())});
    if (!samples_.empty())
        std::memcpy(out.mutable_data(), samples_.data(), samples_.size() * sizeof(DnNoiseSample));
    return out;
}

int Profile::sampleCount() const
{
    return static_cast<int>(samples_.size());
}

}  // namespace murmex_python
