// murmex.Profile: a noise profile held as the library's serialised block,
// with the settings stored in it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <murmex/murmex.h>
#include <pybind11/numpy.h>

namespace murmex_python {

class Profile {
public:
    // The serialised profile. A block is never changed: a profile given new
    // settings or a new header gets a new block. So a job that runs without
    // the GIL keeps its own reference to the block it started with, and
    // another thread may change the profile meanwhile.
    using Block = std::shared_ptr<const std::vector<uint8_t>>;

    // DnReadProfile on a file: path is a str or an os.PathLike.
    static Profile load(const pybind11::handle& path);
    // A serialised profile (anything with the buffer protocol).
    static Profile fromBytes(const pybind11::handle& data);
    // DnBuildProfile2 on an image (see ArrayImage for what it accepts); with
    // settings "auto" (see automaticSettings) the profile stores the
    // settings chosen for the image.
    static Profile measure(const pybind11::handle& image, bool relaxed, const pybind11::handle& settings,
                           pybind11::object progress);

    // DnWriteProfile: the block with the stored settings, as a file.
    void save(const pybind11::handle& path) const;

    Block block() const { return block_; }
    const DnFilterParams& settings() const { return settings_; }
    // Stores new settings in the block (only those named; checked).
    void updateSettings(const pybind11::handle& mapping);

    // The descriptive header as a dict (see header_dict.h), and a new one
    // stored in the block (only the fields named).
    pybind11::dict header() const;
    void updateHeader(const pybind11::handle& mapping);

    // "<murmex.Profile Canon EOS 5D, ISO 1600, 15 samples>"
    std::string repr() const;

    // The samples as a numpy structured array, one record per sample.
    pybind11::array samples() const;
    int sampleCount() const;

private:
    // Adopts a serialised profile: the library reads it back from a file,
    // which checks it and yields its settings. what names it in messages.
    static Profile fromBlock(const std::vector<uint8_t>& block, const std::string& what);
    // Writes params's settings block into the profile.
    void storeSettings(const DnFilterParams& params);
    // Makes block (as the library serialised it, with these settings) the
    // profile's, with its samples read once here: reading them needs no
    // job later, also from a progress function.
    void take(std::vector<uint8_t>&& block, const DnFilterParams& settings, const std::string& context);

    Block block_ = std::make_shared<const std::vector<uint8_t>>();
    std::vector<DnNoiseSample> samples_;
    DnFilterParams settings_{};
};

// The dtype of Profile.samples: the 28 words of DnNoiseSample as named fields.
pybind11::dtype sampleDtype();

// True for what os.fspath takes: str, bytes, os.PathLike.
bool isPath(const pybind11::handle& object);
// A path argument as the bytes the system takes, and as text for messages.
std::string fsPath(const pybind11::handle& path);
std::string pathText(const pybind11::handle& path);

}  // namespace murmex_python
