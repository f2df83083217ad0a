#pragma once

#include <QByteArrayList>
#include <QString>

#include <functional>
#include <optional>

// The preview panel's data source: how many items it shows and which (their byte paths).
class PreviewDataSource
{
public:
    virtual ~PreviewDataSource() = default;
    virtual qsizetype numberOfPreviewItems() const = 0;
    virtual QByteArray previewItemAtIndex(qsizetype index) const = 0;
};

// What the controller asks of a preview panel. Names differ from QWidget's own on purpose: a
// panel is a widget too.
class PreviewPanelControl
{
public:
    virtual ~PreviewPanelControl() = default;
    virtual bool panelIsVisible() const = 0;
    virtual void orderOut() = 0;
    virtual void setDataSource(PreviewDataSource *source) = 0;
    virtual void reloadData() = 0;
    // Shows the panel, raised and active.
    virtual void makeKeyAndOrderFront() = 0;
};

// The space bar's preview: the controller side of the panel (mQLItems, mQLPreviewPanel).
// Main thread only.
class QuickLook : public PreviewDataSource
{
public:
    // Gives the shared panel, creating it on the first request.
    using PanelProvider = std::function<PreviewPanelControl *()>;
    explicit QuickLook(PanelProvider sharedPreviewPanel);

    // Whether typed characters are the preview key: non-empty, and the first one, lower-cased,
    // is a space.
    static bool isPreviewKey(const QString &characters);
    // doKeyDown: the preview key sends showSelectionPreview; anything else is ignored.
    bool doKeyDown(const QString &characters, const std::optional<QByteArray> &selectedPath);

    // The space bar. `selectedPath` is the contents list's selected item (nullopt: no selection,
    // and then nothing happens). A visible panel closes; otherwise the item, if it still exists,
    // is shown.
    void showSelectionPreview(const std::optional<QByteArray> &selectedPath);
    // Closes a visible panel, else shows it with whatever mQLItems holds.
    void toggleQL();
    void updateQuicklook();

    bool sharedPreviewPanelExists() const { return mShared != nullptr; }
    bool acceptsPreviewPanelControl(const PreviewPanelControl *panel) const;
    void beginPreviewPanelControl(PreviewPanelControl *panel);
    // The panel gives up its controller (the user closed it); delegate and data source stay.
    void endPreviewPanelControl(PreviewPanelControl *panel);

    qsizetype numberOfPreviewItems() const override { return mQLItems.size(); }
    QByteArray previewItemAtIndex(qsizetype index) const override;

    const QByteArrayList &items() const { return mQLItems; }
    PreviewPanelControl *controlledPanel() const { return mQLPreviewPanel; }

private:
    PreviewPanelControl *sharedPreviewPanel();
    bool panelIsVisible() const;

    PanelProvider mProvider;
    PreviewPanelControl *mShared = nullptr;
    QByteArrayList mQLItems; // at most one path
    PreviewPanelControl *mQLPreviewPanel = nullptr;
};
