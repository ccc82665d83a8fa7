#include "platform/core/VxWorkArea.h"

#include <csignal>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace {

// The SIGINT handler only touches this flag; it is the instance's own atomic.
std::atomic<bool> *gInterruptFlag = nullptr;
struct sigaction gPreviousSigint;
bool gTty = false;
int gDrawnPercent = -1;
std::string gDrawnStatus;
bool gDrawn = false;

extern "C" void onSigint(int)
{
    if (!gInterruptFlag)
        return;
    // A second Ctrl-C while the first is still being honoured ends the process
    // as usual, so a load that does not look at the interrupt can still be stopped.
    if (gInterruptFlag->exchange(true)) {
        std::signal(SIGINT, SIG_DFL);
        std::raise(SIGINT);
    }
}

void writeAll(const std::string &text)
{
    const char *p = text.data();
    size_t left = text.size();
    while (left > 0) {
        const ssize_t n = ::write(STDERR_FILENO, p, left);
        if (n <= 0)
            return;
        p += n;
        left -= static_cast<size_t>(n);
    }
}

} // namespace

VxWorkArea *VxWorkArea::instance()
{
    static VxWorkArea area;
    return &area;
}

void VxWorkArea::startProgress()
{
    std::lock_guard<std::mutex> lock(mutex);
    interrupted.store(false);
    fraction = 0.f;
    if (showing)
        return;
    showing = true;
    gTty = ::isatty(STDERR_FILENO) == 1;
    gDrawnPercent = -1;
    gDrawnStatus.clear();
    gDrawn = false;
    gInterruptFlag = &interrupted;
    struct sigaction sa = {};
    sa.sa_handler = onSigint;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    sigaction(SIGINT, &sa, &gPreviousSigint);
}

void VxWorkArea::update(const std::function<void()> &change)
{
    Observer notify;
    std::string s;
    float f;
    {
        std::lock_guard<std::mutex> lock(mutex);
        change();
        draw();
        notify = observer;
        s = status;
        f = fraction;
    }
    if (notify)
        notify(s, f);
}

void VxWorkArea::setStatus(const char *text)
{
    update([&] { status = text ? text : ""; });
}

void VxWorkArea::setProgress(float value)
{
    update([&] { fraction = value < 0.f ? 0.f : (value > 1.f ? 1.f : value); });
}

bool VxWorkArea::wasInterrupted() const
{
    return interrupted.load();
}

void VxWorkArea::endProgress()
{
    std::lock_guard<std::mutex> lock(mutex);
    if (!showing)
        return;
    sigaction(SIGINT, &gPreviousSigint, nullptr);
    gInterruptFlag = nullptr;
    if (gTty && gDrawn)
        writeAll("\n");
    showing = false;
    gDrawn = false;
}

void VxWorkArea::interrupt()
{
    interrupted.store(true);
}

bool VxWorkArea::isShowingProgress() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return showing;
}

void VxWorkArea::setObserver(Observer o)
{
    std::lock_guard<std::mutex> lock(mutex);
    observer = std::move(o);
}

// Called with the mutex held. Redraws only when the text or the whole
// percentage changed, so a long load does not flood the terminal.
void VxWorkArea::draw()
{
    if (!showing || !gTty)
        return;
    const int percent = static_cast<int>(fraction * 100.f + 0.5f);
    if (gDrawn && percent == gDrawnPercent && status == gDrawnStatus)
        return;
    gDrawnPercent = percent;
    gDrawnStatus = status;
    gDrawn = true;

    constexpr int barWidth = 30;
    const int filled = percent * barWidth / 100;
    std::string line = "\r";
    line += status.substr(0, 40);
    line += " [";
    line.append(static_cast<size_t>(filled), '#');
    line.append(static_cast<size_t>(barWidth - filled), '.');
    char tail[32];
    std::snprintf(tail, sizeof tail, "] %3d%%\033[K", percent);
    line += tail;
    writeAll(line);
}
