// Outputs are written to a temporary file beside their target and renamed
// over it only when everything went well, so that a failure or an interrupt
// never leaves a partial file under the target's name.
#pragma once

#include <functional>
#include <string>

namespace murmex_app {

class TempOutput {
public:
    // Creates ".NAME.murmex-XXXXXX" (mkstemp) in the target's directory.
    // Throws AppError naming the target when that is not possible.
    explicit TempOutput(const std::string& target);
    // Removes the temporary file unless it was committed.
    ~TempOutput();
    TempOutput(const TempOutput&) = delete;
    TempOutput& operator=(const TempOutput&) = delete;

    const std::string& path() const { return path_; }
    const std::string& target() const { return target_; }

    // Runs writer(path()) and rethrows its AppError naming the target
    // instead of the temporary file, and saying so when the device is full.
    void write(const std::function<void(const std::string& path)>& writer);

    // Gives the temporary file the target's permissions (those of an existing
    // target, else the usual ones for a new file under the umask) and renames
    // it over the target. Throws AppError on failure; the temporary file is
    // then removed by the destructor.
    void commit();

private:
    std::string target_;
    std::string path_;
    bool committed_ = false;
};

// The name a temporary file for target gets, with "XXXXXX" still in it.
std::string temporaryPattern(const std::string& target);

}  // namespace murmex_app
