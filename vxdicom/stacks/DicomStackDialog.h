#pragma once

#include "platform/gui/QxDialog.h"
#include "platform/gui/ThreadNegotiator.h"

#include <QString>

class DicomStackItem;
class QFrame;

/// The small dialog of the slice-order check: a notice that a stack may hold
/// no images, a notice that a descending stack will be reverted, or the form
/// that renumbers the slice locations of a stack that is out of order.
/// It is a ForkedObject so that the list view can create, feed and run it on
/// the GUI thread through a ThreadNegotiator.
///
/// Without a display exec() does not block: it takes the default answer
/// (accept, keeping the suggested start and increment) and prints the
/// question and that answer on the console.
class DicomStackDialog : public QxDialog, public ForkedObject
{
    Q_OBJECT
public:
    enum Action { CorruptedNotice = 0, FlipNotice = 1, RenumberForm = 2 };

    explicit DicomStackDialog(QWidget *parent = nullptr);

    /// Stores both; the start location becomes the stack's
    /// getMinSliceLocation() (its largest location) printed with 'g', 6 digits.
    void setDicomStack(DicomStackItem *stack, Action action);
    /// Builds the content for the action (0 when there is no stack), once.
    void putData() override;
    /// 1 (accepted) or 0 (cancelled); see the class comment for no display.
    int exec() override;

    /// The stored texts as numbers; an invalid text gives 0.
    float startLocation() const;
    float incrementValue() const;

    Action action() const { return act; }
    DicomStackItem *dicomStack() const { return stack; }
    QString startLocationText() const { return startText; }
    QString incrementText() const { return stepText; }
    /// The notice or question shown for the current action.
    QString message() const;

    /// Makes every exec() answer `result` (1 accept, 0 cancel) at once, with
    /// or without a display; -1 restores the normal behaviour. For tests and
    /// scripted runs.
    static void setAnswerOverride(int result);

public slots:
    void updateLocation(const QString &text);
    void updateIncrement(const QString &text);

private:
    void printAnswer(int result, const char *why) const;

    DicomStackItem *stack = nullptr;
    Action act = CorruptedNotice;
    QString startText = QStringLiteral("0");
    QString stepText;
    int margin = 10;
    int frameStyle;
    QFrame *content = nullptr;
};

/// Creates, feeds and runs one DicomStackDialog on the GUI thread for a stack.
class DicomStackDialogNegotiator : public ThreadNegotiator
{
public:
    DicomStackDialogNegotiator(DicomStackItem *stack, DicomStackDialog::Action action)
        : stack(stack), action(action)
    {
    }
    DicomStackDialog *dialog() const;

protected:
    ForkedObject *create() override;

private:
    DicomStackItem *stack;
    DicomStackDialog::Action action;
};
