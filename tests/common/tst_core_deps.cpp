#include "common/SizeText.h"
#include "volumes/Volumes.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTest>

// The core is shared by the daemon's agent and the command-line tool, which must run without a
// display: it may never load Qt Gui or Widgets. Inside it, and between the programs' folders,
// includes point down the layers only, and what runs as root or inside other programs never
// reaches Qt.
class TstCoreDeps : public QObject
{
    Q_OBJECT
private slots:
    // Each folder with the folders it may include from (its own always); lowest layers first.
    void includesPointDown_data()
    {
        QTest::addColumn<QString>("folder");
        QTest::addColumn<QStringList>("allowed");
        QTest::addColumn<bool>("qt");
        QTest::newRow("base") << "base" << QStringList() << false;
        QTest::newRow("common") << "common" << QStringList{"base"} << true;
        QTest::newRow("volumes") << "volumes" << QStringList{"common", "base"} << true;
        QTest::newRow("cache") << "cache" << QStringList{"volumes", "common", "base"} << true;
        QTest::newRow("browser") << "browser" << QStringList{"cache", "volumes", "common", "base"}
                                 << true;
        QTest::newRow("daemon/shared") << "daemon/shared" << QStringList{"base"} << false;
        QTest::newRow("daemon/privileged")
            << "daemon/privileged" << QStringList{"daemon/shared", "base"} << false;
        QTest::newRow("daemon/agent")
            << "daemon/agent"
            << QStringList{"daemon/shared", "browser", "cache", "volumes", "common", "base"}
            << true;
        QTest::newRow("launcher") << "launcher" << QStringList{"base"} << false;
        QTest::newRow("keep") << "keep" << QStringList{"base"} << false;
        QTest::newRow("cli") << "cli"
                             << QStringList{"browser", "cache", "volumes", "common", "base"}
                             << true;
    }
    void includesPointDown()
    {
        QFETCH(QString, folder);
        QFETCH(QStringList, allowed);
        QFETCH(bool, qt);
        const QDir src(QStringLiteral(SALVORA_SOURCE_DIR));
        const QDir dir(src.filePath(folder));
        const QStringList files =
            dir.entryList({QStringLiteral("*.h"), QStringLiteral("*.cpp")}, QDir::Files);
        QVERIFY2(!files.isEmpty(), qPrintable(dir.path()));
        allowed << folder;
        static const QRegularExpression include(
            QStringLiteral("^\\s*#\\s*include\\s*([<\"])([^>\"]+)[>\"]"),
            QRegularExpression::MultilineOption);
        QStringList wrong;
        for (const QString &name : files) {
            QFile f(dir.filePath(name));
            QVERIFY(f.open(QIODevice::ReadOnly));
            const QString text = QString::fromUtf8(f.readAll());
            for (auto it = include.globalMatch(text); it.hasNext();) {
                const auto m = it.next();
                const QString header = m.captured(2);
                QString from;
                if (m.captured(1) == QLatin1String("<")) {
                    if (!qt && header.startsWith(QLatin1Char('Q')))
                        wrong << name + QLatin1String(": Qt (") + header + QLatin1Char(')');
                    continue;
                }
                if (header.endsWith(QLatin1String(".moc"))) continue;
                if (header.contains(QLatin1Char('/'))) {
                    from = header.section(QLatin1Char('/'), 0, -2);
                } else if (dir.exists(header)) {
                    from = folder;
                } else {
                    // Bare names come through the include paths of the libraries a target links.
                    for (const char *lib : {"base", "daemon/shared"})
                        if (src.exists(QLatin1String(lib) + QLatin1Char('/') + header))
                            from = QLatin1String(lib);
                }
                if (!allowed.contains(from)) wrong << name + QLatin1String(": ") + header;
            }
        }
        QVERIFY2(wrong.isEmpty(), qPrintable(wrong.join(QLatin1String("; "))));
    }
};

QTEST_GUILESS_MAIN(TstCoreDeps)
#include "tst_core_deps.moc"
