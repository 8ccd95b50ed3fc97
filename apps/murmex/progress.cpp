#include "progress.h"

#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cmath>

namespace murmex_app {

namespace {

volatile sig_atomic_t interruptFlag = 0;

extern "C" void onInterrupt(int)
{
    interruptFlag = 1;
}

int terminalWidth(std::FILE* out)
{
    struct winsize ws;
    if (ioctl(fileno(out), TIOCGWINSZ, &ws) == 0 && ws.ws_col >= 20)
        return ws.ws_col;
    return 80;
}

}  // namespace

void installInterruptHandler()
{
    struct sigaction action = {};
    action.sa_handler = onInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESETHAND;  // a second Ctrl-C ends the program at once
    sigaction(SIGINT, &action, nullptr);
}

bool interruptRequested()
{
    return interruptFlag != 0;
}

void setInterruptRequested(bool requested)
{
    interruptFlag = requested ? 1 : 0;
}

void throwIfInterrupted()
{
    if (interruptRequested())
        throw Interrupted();
}

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

void Progress::relabel(std::string from, std::string to)
{
    from_ = std::move(from);
    to_ = std::move(to);
}

std::string Progress::barLine(const std::string& label, const std::string& step, int percent, int width)
{
    const int barWidth = 20;
    const int filled = percent * barWidth / 100;
    std::string line = label + " [" + std::string(filled, '#') + std::string(barWidth - filled, '.') + "] ";
    std::string pct = std::to_string(percent) + "%";
    line += std::string(4 - std::min<size_t>(4, pct.size()), ' ') + pct + " " + step;
    if (static_cast<int>(line.size()) > width - 1)
        line.resize(width - 1);
    return line;
}

int Progress::report(const char* stepText, float fraction)
{
    if (mode_ != Mode::Quiet) {
        std::string step = stepText ? stepText : "";
        if (!from_.empty())
            for (size_t at = step.find(from_); at != std::string::npos; at = step.find(from_, at + to_.size()))
                step.replace(at, from_.size(), to_);
        float f = std::isfinite(fraction) ? std::fmin(std::fmax(fraction, 0.0f), 1.0f) : 0.0f;
        const int percent = static_cast<int>(f * 100.0f);
        const bool newStep = step != step_;
        if (mode_ == Mode::Bar) {
            if (newStep || percent != percent_) {
                std::string line = barLine(label_, step, percent, terminalWidth(out_));
                std::fprintf(out_, "\r%s\033[K", line.c_str());
                std::fflush(out_);
                barOpen_ = true;
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
