// salvora3-menu: the tray companion "Salvora 3 Menu". One per session: whoever owns the bus
// name org.salvora.Salvora3.Menu is the companion, and a second start leaves quietly.

#include "MenuController.h"

#include "common/Log.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Texts.h"

#include <QApplication>
#include <QDBusConnection>
#include <QLoggingCategory>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Salvora 3 Menu"));
    // Wayland compositors match windows and notifications to salvora3-menu.desktop by this name.
    QApplication::setDesktopFileName(QStringLiteral("salvora3-menu"));
    // Closing the menu or an alert must not end a program that has no window.
    QApplication::setQuitOnLastWindowClosed(false);
    Texts::install(app);

    QDBusConnection bus = QDBusConnection::sessionBus();
    if (bus.isConnected()) {
        if (!bus.registerService(QLatin1String(Notifications::kMenuService))) return 0;
    } else {
        CommonUtils::addToLogFile(
            QStringLiteral("Salvora 3 Menu: no session bus; notifications will not reach it."));
    }

    MenuController controller;
    QObject::connect(&controller, &MenuController::quitRequested, &app, &QCoreApplication::quit,
                     Qt::QueuedConnection);
    // Logging out closes the session bus: the companion ends with its session.
    if (bus.isConnected()) NotificationBus::whenSessionEnds(&app, [] { QCoreApplication::quit(); });
    controller.start();
    return app.exec();
}
