#pragma once

#include <QFrame>

#include <functional>

class QLabel;
class QPushButton;
class QToolButton;

// A message inside the window, above the list it is about, as the desktop's info bars do it:
// nothing pops up, it stays until dismissed or replaced, and it may offer one action.
class MessageBar : public QFrame
{
    Q_OBJECT
public:
    enum class Level { Success, Warning, Error };

    explicit MessageBar(QWidget *parent = nullptr);

    // Replaces what is shown. An empty `actionText` shows no action button.
    void showMessage(Level level, const QString &text, const QString &actionText = {},
                     std::function<void()> action = {});
    void dismiss();

    Level level() const { return mLevel; }
    QString text() const;
    QPushButton *actionButton() const { return mAction; }
    QToolButton *closeButton() const { return mClose; }

protected:
    void changeEvent(QEvent *event) override;

private:
    void applyColors();

    Level mLevel = Level::Success;
    QLabel *mIcon = nullptr;
    QLabel *mText = nullptr;
    QPushButton *mAction = nullptr;
    QToolButton *mClose = nullptr;
    std::function<void()> mActionFn;
    bool mRecoloring = false;
};
