#include "common/QuitSignals.h"
#include "common/Texts.h"
#include "controller/AppDelegate.h"

#include <QApplication>
#include <QIcon>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Salvora"));
    QCoreApplication::setApplicationName(QStringLiteral("Salvora 3"));
    QCoreApplication::setApplicationVersion(QStringLiteral(SALVORA_VERSION));
    QGuiApplication::setDesktopFileName(QStringLiteral("salvora3"));
    QGuiApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("salvora3")));
    Texts::install(app);

    AppDelegate controller;
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &controller,
                     &AppDelegate::applicationWillTerminate);
    // A session that ends sends SIGTERM: quit as when the last window closes.
    QuitSignals::install();
    if (!controller.applicationDidFinishLaunching()) return 0;
    // A signal during start-up, before the event loop ran, ends the program here.
    if (QuitSignals::requested()) {
        controller.applicationWillTerminate();
        return 0;
    }
    return QApplication::exec();
}
