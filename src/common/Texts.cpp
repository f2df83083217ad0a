#include "common/Texts.h"

#include <QCoreApplication>
#include <QLocale>
#include <QTranslator>

namespace Texts {

void install(QCoreApplication &app)
{
    auto *english = new QTranslator(&app);
    if (english->load(QStringLiteral(":/i18n/salvora3_en.qm")))
        QCoreApplication::installTranslator(english);
    // Installed last, so the user's language is searched first and English fills its gaps.
    auto *local = new QTranslator(&app);
    if (local->load(QLocale(), QStringLiteral("salvora3"), QStringLiteral("_"),
                    QStringLiteral(":/i18n")) &&
        !local->filePath().endsWith(QLatin1String("_en.qm")))
        QCoreApplication::installTranslator(local);
    else
        delete local;
}

QString appName()
{
    //% "Salvora 3"
    return qtTrId("AppName");
}

} // namespace Texts
