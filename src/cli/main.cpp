#include "common/Texts.h"
#include "volumes/Volumes.h"

#include <QCoreApplication>
#include <QTextStream>

#include <cstdio>

namespace {

int usage(QTextStream &err)
{
    err << "usage: salvora volumes\n";
    return 2;
}

int listVolumes(QTextStream &out)
{
    const QStringList protectedVolumes = CommonUtils::getAllProtectedVolumes();
    for (qsizetype i = 0; i < protectedVolumes.size(); ++i) {
        const auto d = CommonUtils::getVolumeInfosForPath(protectedVolumes[i]);
        out << i << '\t' << protectedVolumes[i] << '\t' << (d ? d->uuid : QString()) << '\n';
    }
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("salvora"));
    Texts::install(app);
    QTextStream out(stdout);
    QTextStream err(stderr);
    const QStringList args = app.arguments().mid(1);
    if (args.value(0) == QLatin1String("volumes"))
        return listVolumes(out);
    return usage(err);
}
