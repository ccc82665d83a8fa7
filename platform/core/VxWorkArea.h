#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>

/// The host's work area: status text, progress fraction and the user's
/// interrupt. On a terminal (standard error is a tty) it draws a one-line
/// progress bar; otherwise it shows nothing. Ctrl-C (SIGINT) while progress
/// is shown sets the interrupt instead of killing the process. Thread-safe.
class VxWorkArea
{
public:
    static VxWorkArea *instance();

    /// Starts showing progress (installs the SIGINT handler, clears the interrupt).
    void startProgress();
    void setStatus(const char *text);
    /// Fraction 0..1.
    void setProgress(float fraction);
    /// True once the user asked to stop (Ctrl-C, or interrupt() from code).
    bool wasInterrupted() const;
    /// Ends the progress display (restores the previous SIGINT handler).
    void endProgress();

    /// Sets the interrupt (tests, and the SIGINT handler).
    void interrupt();
    bool isShowingProgress() const;

    /// Observers for tests: called with each status text and fraction.
    using Observer = std::function<void(const std::string &status, float fraction)>;
    void setObserver(Observer o);

private:
    VxWorkArea() = default;
    void draw();
    /// Applies a change of status or fraction under the lock, redraws, and
    /// tells the observer (outside the lock).
    void update(const std::function<void()> &change);
    mutable std::mutex mutex;
    std::atomic<bool> interrupted{false};
    bool showing = false;
    std::string status;
    float fraction = 0.f;
    Observer observer;
};
