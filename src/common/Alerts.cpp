#include "common/Alerts.h"

#include "common/QuitSignals.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QThread>

#include <atomic>

Q_LOGGING_CATEGORY(lcAlerts, "salvora.alerts")

namespace Alerts {

namespace {
std::atomic<Presenter *> sPresenter{nullptr};

int presentHere(const Alert &alert)
{
    if (Presenter *p = sPresenter.load()) return p->present(alert);
    qCWarning(lcAlerts).noquote() << alert.message << '-' << alert.informativeText;
    return 0;
}
} // namespace

void setPresenter(Presenter *presenter)
{
    sPresenter.store(presenter);
}

Presenter *presenter()
{
    return sPresenter.load();
}

int run(const Alert &alert)
{
    QCoreApplication *app = QCoreApplication::instance();
    if (!app || QThread::currentThread() == app->thread()) return presentHere(alert);
    int chosen = -1;
    QMetaObject::invokeMethod(
        app, [&] { chosen = presentHere(alert); }, Qt::BlockingQueuedConnection);
    return chosen;
}

void runUntil(const Alert &alert, int button)
{
    // With nobody to press a button, once is enough.
    if (!presenter()) {
        run(alert);
        return;
    }
    // A quit asked for by a signal ends the asking too.
    while (run(alert) != button && !QuitSignals::requested()) {
    }
}

} // namespace Alerts
