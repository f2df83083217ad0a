#include "controller/AppDelegate.h"

#include "ui/PreviewPanel.h"

#include <QMainWindow>

PreviewPanelControl *AppDelegate::lazilyCreatedPanel()
{
    if (!mPreviewPanel) {
        mPreviewPanel = new PreviewPanel(window);
        connect(mPreviewPanel, &PreviewPanel::panelClosed, this,
                [this] { mQuickLook.endPreviewPanelControl(mPreviewPanel); });
    }
    return mPreviewPanel;
}

void AppDelegate::doKeyDown(const QString &characters)
{
    std::optional<QByteArray> selected;
    const int row = mTableViewContents->selectedRow();
    if (row >= 0 && row < mContents.size()) selected = mContents.fullPath(row);
    mQuickLook.doKeyDown(characters, selected);
}

void AppDelegate::toggleQL()
{
    mQuickLook.toggleQL();
}
