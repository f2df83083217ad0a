// The space bar's preview from the controller's side, with a stand-in panel: a toggle that needs
// a selection, shows at most one existing item, and takes the panel explicitly.

#include "TestEnv.h"

#include "controller/QuickLook.h"

#include <QCoreApplication>
#include <QTest>

namespace {

class FakePanel : public PreviewPanelControl
{
public:
    bool visible = false;
    PreviewDataSource *source = nullptr;
    QByteArrayList shownItems; // what the last reload read from the source
    int fronts = 0;

    bool panelIsVisible() const override { return visible; }
    void orderOut() override { visible = false; }
    void setDataSource(PreviewDataSource *s) override { source = s; }
    void reloadData() override
    {
        shownItems.clear();
        for (qsizetype i = 0; source && i < source->numberOfPreviewItems(); ++i)
            shownItems.append(source->previewItemAtIndex(i));
    }
    void makeKeyAndOrderFront() override
    {
        visible = true;
        ++fronts;
    }
};

} // namespace

class TstQuickLook : public QObject
{
    Q_OBJECT
    TestEnv *env = nullptr;
    QByteArray a, b;

private slots:
    void init()
    {
        env = new TestEnv;
        a = env->homeBytes() + "/cache/caf\xe9.txt";
        b = env->homeBytes() + "/cache/b.png";
        QVERIFY(TestEnv::writeFile(a, "a"));
        QVERIFY(TestEnv::writeFile(b, "b"));
    }
    void cleanup()
    {
        delete env;
        env = nullptr;
    }

    void previewKey()
    {
        QVERIFY(QuickLook::isPreviewKey(QStringLiteral(" ")));
        QVERIFY(QuickLook::isPreviewKey(QStringLiteral(" x")));
        QVERIFY(!QuickLook::isPreviewKey(QString()));
        QVERIFY(!QuickLook::isPreviewKey(QStringLiteral("x ")));
        QVERIFY(!QuickLook::isPreviewKey(QStringLiteral("\t")));
    }

    void spaceTogglesOnTheSelection()
    {
        FakePanel panel;
        int created = 0;
        QuickLook ql([&] {
            ++created;
            return &panel;
        });
        QVERIFY(!ql.sharedPreviewPanelExists());

        // No selection: nothing at all, not even the panel.
        ql.showSelectionPreview(std::nullopt);
        QCOMPARE(created, 0);

        QVERIFY(ql.doKeyDown(QStringLiteral(" "), a));
        QCOMPARE(created, 1);
        QVERIFY(panel.visible);
        QCOMPARE(panel.source, &ql);
        QCOMPARE(panel.shownItems, QByteArrayList{a});
        QVERIFY(ql.acceptsPreviewPanelControl(&panel));

        // No selection while visible: it stays.
        ql.showSelectionPreview(std::nullopt);
        QVERIFY(panel.visible);
        QCOMPARE(ql.items(), QByteArrayList{a});

        // Another row is selected: the next space closes, the one after shows the new row.
        ql.showSelectionPreview(b);
        QVERIFY(!panel.visible);
        QVERIFY(ql.items().isEmpty());
        ql.showSelectionPreview(b);
        QVERIFY(panel.visible);
        QCOMPARE(panel.shownItems, QByteArrayList{b});
        QCOMPARE(created, 1);

        // Other keys do nothing.
        QVERIFY(!ql.doKeyDown(QStringLiteral("a"), a));
        QVERIFY(panel.visible);
    }

    void vanishedItemIsNotShown()
    {
        FakePanel panel;
        QuickLook ql([&] { return &panel; });
        ql.showSelectionPreview(env->homeBytes() + "/cache/gone");
        QVERIFY(!panel.visible);
        QVERIFY(ql.items().isEmpty());
        QVERIFY(!ql.sharedPreviewPanelExists());
        ql.showSelectionPreview(QByteArray());
        QVERIFY(!panel.visible);
    }

    void toggleAndPanelControl()
    {
        FakePanel panel;
        FakePanel stranger;
        QuickLook ql([&] { return &panel; });
        ql.toggleQL(); // shows the (empty) panel
        QVERIFY(panel.visible);
        QVERIFY(panel.shownItems.isEmpty());
        ql.toggleQL();
        QVERIFY(!panel.visible);

        QVERIFY(ql.acceptsPreviewPanelControl(&panel));
        QVERIFY(!ql.acceptsPreviewPanelControl(&stranger));
        ql.beginPreviewPanelControl(&stranger); // one panel at a time
        QCOMPARE(ql.controlledPanel(), &panel);
        ql.endPreviewPanelControl(&panel);
        QCOMPARE(ql.controlledPanel(), nullptr);
        QVERIFY(!ql.acceptsPreviewPanelControl(&panel));
        // Shown again, it takes the panel again.
        ql.showSelectionPreview(a);
        QCOMPARE(ql.controlledPanel(), &panel);
        QCOMPARE(panel.shownItems, QByteArrayList{a});
        QCOMPARE(ql.previewItemAtIndex(5), QByteArray());
    }
};

QTEST_GUILESS_MAIN(TstQuickLook)
#include "tst_quicklook.moc"
