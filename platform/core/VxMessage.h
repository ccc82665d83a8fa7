#pragma once

#include <cstdarg>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

/// The host's message console: printf-style lines, thread-safe. Output goes
/// to standard output unless a sink is installed (tests capture with one).
class VxMessage
{
public:
    using Sink = std::function<void(const std::string &text)>;

    static VxMessage *getTheMsg();

    /// Prints the formatted text as it is (add "\n" yourself where a line ends;
    /// a text without a trailing newline gets one).
    void printf(const char *fmt, ...) __attribute__((format(printf, 2, 3)));
    /// The same with a "Warning: " prefix, to standard error when no sink is set.
    void warning(const char *fmt, ...) __attribute__((format(printf, 2, 3)));
    /// The same with an "Error: " prefix, to standard error when no sink is set.
    void error(const char *fmt, ...) __attribute__((format(printf, 2, 3)));
    /// A failure whose text is fixed ("reading %s failed: %s"): printed as
    /// it is, to standard error when no sink is set; shown when quiet too.
    void failure(const char *fmt, ...) __attribute__((format(printf, 2, 3)));

    /// Installs a sink that receives every message instead of the console;
    /// an empty sink restores console output. Returns the previous sink.
    Sink setSink(Sink sink);

    /// Suppresses console output of printf() (warnings and errors still show);
    /// sinks receive everything.
    void setQuiet(bool quiet);
    bool isQuiet() const;

    /// What an observer is told besides the text: printf 0, warning 1,
    /// error 2, failure 3.
    enum Level { Info = 0, Warning = 1, Error = 2, Failure = 3 };
    using Observer = std::function<void(Level level, const std::string &text)>;
    /// Installs an observer that sees every message (with its level) in
    /// addition to the console or the sink, on the thread that prints it and
    /// while the console is locked (so it must not print). An empty observer
    /// removes it. Returns the previous observer.
    Observer setObserver(Observer observer);

    /// A message kept by a VxMessageDefer.
    struct Kept
    {
        Level level;
        std::string text; ///< formatted, with its prefix and newline
    };
    /// Prints kept messages exactly as they would have been printed when
    /// they were raised.
    void replay(const std::vector<Kept> &messages);

private:
    VxMessage() = default;
    void output(int level, const char *fmt, va_list ap);
    void deliver(Level level, const std::string &text);

    mutable std::mutex mutex;
    Sink sink;
    Observer observer;
    bool quiet = false;
};

/// While it lives, the messages raised on the thread that made it are kept
/// in `sink` instead of printed, so that a helper thread's messages can be
/// printed by VxMessage::replay in the order the work would have raised them
/// on one thread. The innermost one of a thread keeps; the sink must outlive
/// it.
class VxMessageDefer
{
public:
    explicit VxMessageDefer(std::vector<VxMessage::Kept> *sink);
    ~VxMessageDefer();
    VxMessageDefer(const VxMessageDefer &) = delete;
    VxMessageDefer &operator=(const VxMessageDefer &) = delete;

private:
    std::vector<VxMessage::Kept> *previous;
};

/// Captures the console for the lifetime of the object (tests).
class VxMessageCapture
{
public:
    VxMessageCapture();
    ~VxMessageCapture();
    VxMessageCapture(const VxMessageCapture &) = delete;
    VxMessageCapture &operator=(const VxMessageCapture &) = delete;

    /// Everything printed so far, in order.
    std::string text() const;
    bool contains(const std::string &needle) const;
    void clear();

private:
    mutable std::mutex mutex;
    std::string captured;
    VxMessage::Sink previous;
};
