// The preview panel: what each kind of file gives to look at (whatever the bytes of its name),
// the space bar opening and closing it through the controller, and results that arrive late.

#include "TestEnv.h"

#include "common/Texts.h"
#include "logic/QuickLook.h"
#include "ui/PreviewPanel.h"

#include <QApplication>
#include <QBuffer>
#include <QImage>
#include <QPainter>
#include <QPdfWriter>
#include <QSignalSpy>
#include <QTest>

namespace {

class Source : public PreviewDataSource
{
public:
    QByteArrayList items;
    qsizetype numberOfPreviewItems() const override { return items.size(); }
    QByteArray previewItemAtIndex(qsizetype i) const override { return items.value(i); }
};

bool writeImage(const QByteArray &path, QSize size)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::darkCyan);
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    return image.save(&buffer, "PNG") && TestEnv::writeFile(path, png);
}

} // namespace

class TstPreviewPanel : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    QByteArray dir;

private slots:
    void initTestCase() { Texts::install(*QCoreApplication::instance()); }
    void init()
    {
        env = new TestEnv;
        dir = env->homeBytes() + "/cache/2024-05-03 09_15_00/";
    }
    void cleanup() { delete env; }

    void whatEachFileGives()
    {
        // An image under a name that is not UTF-8 and has no extension to go by.
        const QByteArray image = dir + "photo\xe9";
        QVERIFY(writeImage(image, QSize(64, 32)));
        PreviewPanel::Preview p = PreviewPanel::load(image);
        QVERIFY(p.kind == PreviewPanel::Kind::Image && p.image.size() == QSize(64, 32));

        QVERIFY(TestEnv::writeFile(dir + "notes.txt", "first line\nsecond line\n"));
        p = PreviewPanel::load(dir + "notes.txt");
        QVERIFY(p.kind == PreviewPanel::Kind::Text && !p.textTruncated);
        QCOMPARE(p.text, QStringLiteral("first line\nsecond line\n"));

        QVERIFY(TestEnv::writeFile(dir + "big.log", QByteArray(PreviewPanel::kTextLimit + 1, 'x')));
        p = PreviewPanel::load(dir + "big.log");
        QVERIFY(p.text.size() == PreviewPanel::kTextLimit && p.textTruncated);

        QVERIFY(TestEnv::writeFile(dir + "blob.bin", QByteArray(4096, '\0')));
        p = PreviewPanel::load(dir + "blob.bin");
        QVERIFY(p.kind == PreviewPanel::Kind::Info && !p.kindText.isEmpty() && p.size == 4096);

        p = PreviewPanel::load(dir + "gone");
        QVERIFY(p.kind == PreviewPanel::Kind::Info && !p.exists);
    }

    void pdfFirstPage()
    {
        if (!PreviewPanel::hasPdfSupport()) QSKIP("built without Qt PDF");
        const QByteArray path = dir + "letter\xff.pdf";
        QVERIFY(TestEnv::makeFolders(dir));
        {
            QPdfWriter writer(QFile::decodeName(env->homeBytes() + "/letter.pdf"));
            QPainter painter(&writer);
            painter.drawText(100, 100, QStringLiteral("Hello"));
        }
        QVERIFY(TestEnv::writeFile(path, TestEnv::readFile(env->homeBytes() + "/letter.pdf")));
        const PreviewPanel::Preview p = PreviewPanel::load(path);
        QVERIFY(p.kind == PreviewPanel::Kind::Pdf && !p.image.isNull());
    }

    void spaceOpensAndClosesThePanel()
    {
        const QByteArray image = dir + "photo.png";
        QVERIFY(writeImage(image, QSize(20, 20)));
        QWidget window;
        window.show();
        PreviewPanel panel(&window);
        QSignalSpy loaded(&panel, &PreviewPanel::loaded);
        QuickLook ql([&] { return &panel; });
        QObject::connect(&panel, &PreviewPanel::panelClosed, &panel,
                         [&] { ql.endPreviewPanelControl(&panel); });

        QVERIFY(ql.doKeyDown(QStringLiteral(" "), image));
        QVERIFY(panel.isVisible());
        QTRY_COMPARE(loaded.size(), 1);
        QCOMPARE(panel.shownKind(), PreviewPanel::Kind::Image);

        // No selection while open: it stays open.
        ql.showSelectionPreview(std::nullopt);
        QVERIFY(panel.isVisible());
        QVERIFY(ql.doKeyDown(QStringLiteral(" "), image));
        QVERIFY(!panel.isVisible() && ql.items().isEmpty());

        // Other keys do nothing; an item that vanished is not shown.
        QVERIFY(!ql.doKeyDown(QStringLiteral("a"), image));
        ql.showSelectionPreview(dir + "gone");
        QVERIFY(!panel.isVisible());
        // The menu's toggle shows whatever the controller holds, here nothing, and hides again.
        ql.toggleQL();
        QVERIFY(panel.isVisible());
        QTRY_COMPARE(panel.shownKind(), PreviewPanel::Kind::Nothing);
        ql.toggleQL();
        QVERIFY(!panel.isVisible());

        // Opened again, then closed by the user from the panel itself.
        ql.showSelectionPreview(image);
        QVERIFY(panel.isVisible());
        QTest::keyClick(&panel, Qt::Key_Space);
        QVERIFY(!panel.isVisible() && ql.controlledPanel() == nullptr);
        ql.showSelectionPreview(image);
        QVERIFY(panel.isVisible() && ql.controlledPanel() == &panel);
    }

    void theLatestItemWins()
    {
        const QByteArray big = dir + "big.txt";
        const QByteArray small = dir + "small.txt";
        QVERIFY(TestEnv::writeFile(big, QByteArray(PreviewPanel::kTextLimit, 'b')));
        QVERIFY(TestEnv::writeFile(small, "s"));
        PreviewPanel panel;
        QSignalSpy loaded(&panel, &PreviewPanel::loaded);
        Source source;
        panel.setDataSource(&source);
        source.items = {big};
        panel.reloadData();
        source.items = {small};
        panel.reloadData();
        QTRY_COMPARE(loaded.size(), 1);
        QTest::qWait(100);
        QCOMPARE(loaded.size(), 1); // the first result was dropped
        QVERIFY(panel.shown().path == small && panel.shown().text == QLatin1String("s"));

        source.items.clear();
        panel.reloadData();
        QTRY_COMPARE(loaded.size(), 2);
        QVERIFY(panel.shownKind() == PreviewPanel::Kind::Nothing && panel.infoLine().isEmpty());
    }
};

QTEST_MAIN(TstPreviewPanel)
#include "tst_previewpanel.moc"
