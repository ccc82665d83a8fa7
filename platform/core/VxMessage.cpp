#include "platform/core/VxMessage.h"

#include <cstdarg>
#include <cstdio>

VxMessage *VxMessage::getTheMsg()
{
    static VxMessage theMsg;
    return &theMsg;
}

namespace {
thread_local std::vector<VxMessage::Kept> *tDeferred = nullptr;
} // namespace

VxMessageDefer::VxMessageDefer(std::vector<VxMessage::Kept> *sink) : previous(tDeferred)
{
    tDeferred = sink;
}

VxMessageDefer::~VxMessageDefer()
{
    tDeferred = previous;
}

void VxMessage::output(int level, const char *fmt, va_list ap)
{
    va_list ap2;
    va_copy(ap2, ap);
    const int n = std::vsnprintf(nullptr, 0, fmt, ap);
    std::string text;
    if (n > 0) {
        text.resize(static_cast<size_t>(n));
        std::vsnprintf(text.data(), static_cast<size_t>(n) + 1, fmt, ap2);
    }
    va_end(ap2);
    if (level == 1)
        text.insert(0, "Warning: ");
    else if (level == 2)
        text.insert(0, "Error: ");
    if (text.empty() || text.back() != '\n')
        text += '\n';
    if (tDeferred) {
        tDeferred->push_back({static_cast<Level>(level), std::move(text)});
        return;
    }
    deliver(static_cast<Level>(level), text);
}

void VxMessage::replay(const std::vector<Kept> &messages)
{
    for (const Kept &m : messages)
        deliver(m.level, m.text);
}

void VxMessage::deliver(Level level, const std::string &text)
{
    std::lock_guard<std::mutex> lock(mutex);
    if (observer)
        observer(level, text);
    if (sink) {
        sink(text);
        return;
    }
    if (level == 0) {
        if (!quiet) {
            std::fputs(text.c_str(), stdout);
            std::fflush(stdout);
        }
    } else {
        std::fflush(stdout);
        std::fputs(text.c_str(), stderr);
    }
}

void VxMessage::printf(const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    output(0, fmt, ap);
    va_end(ap);
}

void VxMessage::warning(const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    output(1, fmt, ap);
    va_end(ap);
}

void VxMessage::failure(const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    output(3, fmt, ap);
    va_end(ap);
}

void VxMessage::error(const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    output(2, fmt, ap);
    va_end(ap);
}

VxMessage::Sink VxMessage::setSink(Sink newSink)
{
    std::lock_guard<std::mutex> lock(mutex);
    Sink old = std::move(sink);
    sink = std::move(newSink);
    return old;
}

VxMessage::Observer VxMessage::setObserver(Observer newObserver)
{
    std::lock_guard<std::mutex> lock(mutex);
    Observer old = std::move(observer);
    observer = std::move(newObserver);
    return old;
}

void VxMessage::setQuiet(bool q)
{
    std::lock_guard<std::mutex> lock(mutex);
    quiet = q;
}

bool VxMessage::isQuiet() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return quiet;
}

VxMessageCapture::VxMessageCapture()
{
    previous = VxMessage::getTheMsg()->setSink([this](const std::string &text) {
        std::lock_guard<std::mutex> lock(mutex);
        captured += text;
    });
}

VxMessageCapture::~VxMessageCapture()
{
    VxMessage::getTheMsg()->setSink(std::move(previous));
}

std::string VxMessageCapture::text() const
{
    std::lock_guard<std::mutex> lock(mutex);
    return captured;
}

bool VxMessageCapture::contains(const std::string &needle) const
{
    return text().find(needle) != std::string::npos;
}

void VxMessageCapture::clear()
{
    std::lock_guard<std::mutex> lock(mutex);
    captured.clear();
}
