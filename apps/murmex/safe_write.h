// Outputs are written to a temporary file beside their target and renamed
// over it only when everything went well, so that a failure or an interrupt
// never leaves a partial file under the target's name.
//
// A target that the user named and that is a symbolic link is followed, as
// cp follows it: the file it points to is replaced (in that file's
// directory), the link stays. A name the program made (beside an input, in an
// output folder or the profile library) is not followed: the link may point
// anywhere, so it is refused. Only regular files are replaced; devices, named
// pipes, sockets and directories are refused, as is an existing file that the
// user may not write.
#pragma once

#include <functional>
#include <string>

#include "host/replace_file.h"

namespace murmex_app {

// Whether a symbolic link at a target's name is written through.
enum class Links {
    Follow,  // a name the user gave
    Refuse,  // a name the program made
};

class TempOutput {
public:
    // Checks the target (checkOutputTarget) and creates
    // ".NAME.murmex-XXXXXX" (mkstemp) in the directory of the file it
    // resolves to, registered for removal by a signal (interrupt.h) as
    // written in the foreground, or in the background until
    // writeInForeground(). Throws AppError naming the target when that is
    // not possible. With Links::Refuse the target is not resolved: should a
    // link appear at its name after the check, the rename replaces the link.
    explicit TempOutput(const std::string& target, bool foreground = true, Links links = Links::Follow);
    // Removes the temporary file unless it was committed.
    ~TempOutput();
    TempOutput(const TempOutput&) = delete;
    TempOutput& operator=(const TempOutput&) = delete;

    const std::string& path() const { return path_; }
    const std::string& target() const { return target_; }

    // From now on a signal ends the program at once (interrupt.h).
    void writeInForeground();

    // Runs writer(path()) and rethrows its AppError naming the target
    // instead of the temporary file, and saying so when the device is full.
    void write(const std::function<void(const std::string& path)>& writer);

    // Gives the temporary file the target's permissions (those of an existing
    // target, else the usual ones for a new file under the umask) and renames
    // it over the file the target resolves to. Throws AppError on failure; the
    // temporary file is then removed by the destructor.
    void commit();

private:
    std::string target_;
    std::string resolved_;
    std::string path_;
    int slot_ = -1;
    bool committed_ = false;
};

using murmex_host::temporaryPattern;

// The file a target names once symbolic links are followed (the target
// itself when it is no link). A dangling link resolves to the missing file it
// points to. Throws AppError for a loop of links.
std::string resolveOutputPath(const std::string& target);

// True when a and b name the same file once links, "." and ".." are
// resolved, also when it does not exist yet (a hard link to it counts too).
bool sameFile(const std::string& a, const std::string& b);

// Throws AppError ("cannot write TARGET: ...") when the target resolves to an
// existing file that is not a regular file, or that the user may not write,
// and with Links::Refuse when the target is a symbolic link, dangling or not.
void checkOutputTarget(const std::string& target, Links links = Links::Follow);

}  // namespace murmex_app
