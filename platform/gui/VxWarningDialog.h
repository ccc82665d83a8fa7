#pragma once

#include <QString>

/// The host's warning dialog with up to three buttons. With a display it is a
/// modal message box (run on the GUI thread through the negotiator); without
/// one (no QApplication, or the "offscreen"/"minimal" platform) it prints the
/// question and the default answer on the console and returns the default.
class VxWarningDialog
{
public:
    /// Returns the index (0..2) of the chosen button. Empty button texts are
    /// left out (all empty: one "OK" button). The escape button is the answer
    /// when the box is closed or Escape is pressed; without one, the default
    /// button is. A default that names no button becomes the first button.
    /// Without a display the console shows
    /// "<title>: <text>\n-> <default button text> (no display; default answer)".
    /// May be called from any thread: the box runs on the GUI thread.
    static int warning(const QString &title, const QString &text, const QString &button0,
                       const QString &button1 = QString(), const QString &button2 = QString(),
                       int defaultButton = 0, int escapeButton = -1);

    /// Shows an information box (with a display) or prints the text.
    static void information(const QString &title, const QString &text);

    /// Whether dialogs can be shown to a user.
    static bool haveDisplay();
    /// Forces the answer of haveDisplay() (tests); -1 restores detection.
    static void setDisplayOverride(int haveDisplay);
};
