#pragma once

#include <QString>
#include <QStringList>

// Modal alerts asked for by the core. The core never draws: the application installs a
// presenter (a message box), tests install a recorder, and without one the alert is printed as
// a warning and counts as answered with its default button.
namespace Alerts {

struct Alert
{
    QString message;         // the bold first line
    QString informativeText; // the explanation under it
    QStringList buttons;     // first = default
    // Critical alerts confirm what cannot be undone; the presenter marks them as such.
    enum class Style { Warning, Critical };
    Style style = Style::Warning;
};

class Presenter
{
public:
    virtual ~Presenter() = default;
    // Shows the alert until it is closed; the index of the button chosen, or -1 when it was
    // closed some other way (Escape, the window's close box).
    virtual int present(const Alert &alert) = 0;
};

// Process-wide; not owned. Set it before the first alert and keep it alive.
void setPresenter(Presenter *presenter);
Presenter *presenter();

// Shows the alert once, on the main thread (waiting for it from any other thread).
int run(const Alert &alert);
// Shows the alert again and again until `button` is chosen.
void runUntil(const Alert &alert, int button = 0);

} // namespace Alerts
