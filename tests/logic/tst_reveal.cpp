// Revealing items through a stand-in file manager on a private bus, and the fallback to opening
// the item's folder when none answers.

#include "logic/RestoreActions.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QSignalSpy>
#include <QTest>

namespace {

// Answers org.freedesktop.FileManager1.ShowItems like a file manager would, and remembers.
class FakeFileManager : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.FileManager1")
public:
    QList<QStringList> shown;
    QStringList startupIds;

public slots:
    void ShowItems(const QStringList &uris, const QString &startupId)
    {
        shown.append(uris);
        startupIds.append(startupId);
    }
};

} // namespace

class TstReveal : public QObject
{
    Q_OBJECT

private slots:
    void revealGoesToTheFileManager()
    {
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("no session bus (run through ctest, which starts a private one)");
        QDBusConnection fm =
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("fake-fm"));
        FakeFileManager fake;
        QVERIFY(fm.registerObject(QLatin1String(FileManagerReveal::kPath), &fake,
                                  QDBusConnection::ExportAllSlots));
        QVERIFY(fm.registerService(QLatin1String(FileManagerReveal::kService)));

        QList<QUrl> opened;
        FileManagerReveal reveal([&](const QUrl &u) {
            opened.append(u);
            return true;
        });
        QSignalSpy done(&reveal, &FileManagerReveal::revealed);
        const QByteArray a = "/c/2024-05-03 09_15_00/caf\xe9.txt";
        const QByteArray b = "/c/2024-05-03 09_15_00/b";
        reveal.reveal(QByteArrayList{a, b});
        QTRY_COMPARE(done.size(), 2);
        // One call per item, each naming its item by a file URL that keeps its bytes.
        QCOMPARE(fake.shown,
                 QList<QStringList>({{QString::fromLatin1(RestoreActions::fileUrlBytes(a))},
                                     {QString::fromLatin1(RestoreActions::fileUrlBytes(b))}}));
        QVERIFY(done[0][1].toBool() && done[1][1].toBool() && opened.isEmpty());

        // Without a file manager, the item's folder opens instead.
        QVERIFY(fm.unregisterService(QLatin1String(FileManagerReveal::kService)));
        fm.unregisterObject(QLatin1String(FileManagerReveal::kPath));
        reveal.reveal(a);
        QTRY_COMPARE(done.size(), 3);
        QVERIFY(!done[2][1].toBool() && opened.size() == 1);
        QCOMPARE(RestoreActions::pathFromFileUrl(opened[0]),
                 std::optional<QByteArray>("/c/2024-05-03 09_15_00"));
        QDBusConnection::disconnectFromBus(QStringLiteral("fake-fm"));
    }
};

QTEST_GUILESS_MAIN(TstReveal)
#include "tst_reveal.moc"
