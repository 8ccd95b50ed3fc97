#include "progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

namespace murmex_app {

namespace {

int terminalWidth(std::FILE* out)
{
    struct winsize ws;
    if (ioctl(fileno(out), TIOCGWINSZ, &ws) == 0 && ws.ws_col > 0)
        return ws.ws_col;
    return 80;
}

bool continuationByte(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// Terminal columns of UTF-8 text, one per character.
size_t columns(const std::string& text)
{
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) { return !continuationByte(c); }));
}

// The text's first n characters.
std::string firstColumns(const std::string& text, size_t n)
{
    size_t at = 0;
    for (size_t taken = 0; at < text.size(); ++at)
        if (!continuationByte(text[at]) && taken++ == n)
            break;
    return text.substr(0, at);
}

// The text in at most n characters, its middle replaced by "..." when it is
// longer: both ends of a file name tell files apart.
std::string shortenMiddle(const std::string& text, size_t n)
{
    const size_t have = columns(text);
    if (have <= n)
        return text;
    if (n <= 3)
        return firstColumns(text, n);
    const size_t tail = (n - 3) / 2, head = n - 3 - tail;
    size_t at = text.size();
    for (size_t kept = 0; at > 0 && kept < tail;)
        if (!continuationByte(text[--at]))
            ++kept;
    return firstColumns(text, head) + "..." + text.substr(at);
}

}  // namespace

Progress::Mode Progress::modeFor(bool quiet)
{
    if (quiet)
        return Mode::Quiet;
    return isatty(STDERR_FILENO) ? Mode::Bar : Mode::Lines;
}

Progress::Progress(Mode mode, std::string label, std::FILE* out) : mode_(mode), label_(std::move(label)), out_(out) {}

Progress::~Progress()
{
    finish();
}

std::string Progress::barLine(const std::string& label, const std::string& step, int percent, int width)
{
    // The line must stay shorter than the terminal, or the terminal wraps it
    // and every redraw leaves a line behind. What gives way when it does not
    // fit: bar cells (down to 10), the label's middle (down to 12
    // characters), the step text's end, more bar cells (down to 5), and on
    // the narrowest terminals everything but the percentage.
    const size_t room = static_cast<size_t>(std::max(width - 1, 1));
    std::string pct = std::to_string(percent) + "%";
    pct.insert(0, 4 - std::min<size_t>(4, pct.size()), ' ');
    size_t barWidth = 20;
    auto meter = [&] {
        const size_t filled = static_cast<size_t>(percent) * barWidth / 100;
        std::string text(1, '[');
        text.append(filled, '#').append(barWidth - filled, '.').append("] ").append(pct);
        return text;
    };
    const size_t labelMin = std::min<size_t>(columns(label), 12);
    const size_t stepNeed = step.empty() ? 0 : columns(step) + 1;
    while (barWidth > 10 && labelMin + 1 + columns(meter()) + stepNeed > room)
        --barWidth;
    while (barWidth > 5 && labelMin + 1 + columns(meter()) > room)
        --barWidth;
    const std::string m = meter();
    if (columns(m) > room)
        return firstColumns(pct.substr(pct.find_first_not_of(' ')), room);
    const size_t available = room - columns(m) - (label.empty() ? 0 : 1);
    const size_t labelRoom = std::min(available, std::max(labelMin, available > stepNeed ? available - stepNeed : 0));
    std::string line = shortenMiddle(label, labelRoom);
    if (!line.empty())
        line += ' ';
    line += m;
    const size_t used = columns(line);
    if (!step.empty() && used + 1 < room)
        line.append(" ").append(firstColumns(step, room - used - 1));
    return line;
}

int Progress::report(const char* stepText, float fraction)
{
    if (mode_ != Mode::Quiet && !interruptRequested()) {
        const std::string step = stepText ? stepText : "";
        float f = std::isfinite(fraction) ? std::fmin(std::fmax(fraction, 0.0f), 1.0f) : 0.0f;
        const int percent = static_cast<int>(f * 100.0f);
        const bool newStep = step != step_;
        if (mode_ == Mode::Bar) {
            if (newStep || percent != percent_) {
                std::string line = barLine(label_, step, percent, terminalWidth(out_));
                std::fprintf(out_, "\r%s\033[K", line.c_str());
                std::fflush(out_);
                barOpen_ = true;
                setProgressLineOpen(true);
            }
        } else {
            const int tenth = percent / 10;
            if (newStep || tenth != lastTenth_) {
                std::fprintf(out_, "%s: %s %d%%\n", label_.c_str(), step.c_str(), percent);
                std::fflush(out_);
                lastTenth_ = tenth;
            }
        }
        step_ = step;
        percent_ = percent;
    }
    return interruptRequested() ? 1 : 0;
}

void Progress::finish()
{
    if (barOpen_) {
        std::fputc('\n', out_);
        std::fflush(out_);
        barOpen_ = false;
        setProgressLineOpen(false);
    }
}

void Progress::note(const std::string& text)
{
    if (mode_ == Mode::Quiet)
        return;
    finish();
    std::fprintf(out_, "%s\n", text.c_str());
    std::fflush(out_);
}

int Progress::callback(void* hostContext, const char* stepText, float fraction)
{
    return static_cast<Progress*>(hostContext)->report(stepText, fraction);
}

}  // namespace murmex_app
