#include "logic/QuickLook.h"

#include <sys/stat.h>

QuickLook::QuickLook(PanelProvider sharedPreviewPanel) : mProvider(std::move(sharedPreviewPanel)) {}

bool QuickLook::isPreviewKey(const QString &characters)
{
    return !characters.isEmpty() && characters.at(0).toLower() == QLatin1Char(' ');
}

bool QuickLook::doKeyDown(const QString &characters, const std::optional<QByteArray> &selectedPath)
{
    if (!isPreviewKey(characters)) return false;
    showSelectionPreview(selectedPath);
    return true;
}

void QuickLook::showSelectionPreview(const std::optional<QByteArray> &selectedPath)
{
    // Without a selection the panel stays as it is, even when it is open.
    if (!selectedPath) return;
    mQLItems.clear();
    // The key is a toggle: with the list emptied, closing reopens nothing.
    if (panelIsVisible()) {
        mShared->orderOut();
        return;
    }
    struct stat st
    {
    };
    if (!selectedPath->isEmpty() && ::stat(selectedPath->constData(), &st) == 0)
        mQLItems.append(*selectedPath);
    if (!mQLItems.isEmpty()) updateQuicklook();
}

void QuickLook::toggleQL()
{
    if (panelIsVisible())
        mShared->orderOut();
    else
        updateQuicklook();
}

void QuickLook::updateQuicklook()
{
    PreviewPanelControl *panel = sharedPreviewPanel();
    if (!panel) return;
    // Take control explicitly rather than wait for the panel to look for a controller.
    beginPreviewPanelControl(panel);
    if (!mQLPreviewPanel) return;
    mQLPreviewPanel->reloadData();
    mQLPreviewPanel->makeKeyAndOrderFront();
}

bool QuickLook::acceptsPreviewPanelControl(const PreviewPanelControl *panel) const
{
    return panel && panel == mQLPreviewPanel;
}

void QuickLook::beginPreviewPanelControl(PreviewPanelControl *panel)
{
    if (mQLPreviewPanel || !panel) return;
    mQLPreviewPanel = panel;
    panel->setDataSource(this);
}

void QuickLook::endPreviewPanelControl(PreviewPanelControl *panel)
{
    if (panel == mQLPreviewPanel) mQLPreviewPanel = nullptr;
}

QByteArray QuickLook::previewItemAtIndex(qsizetype index) const
{
    return index >= 0 && index < mQLItems.size() ? mQLItems[index] : QByteArray();
}

PreviewPanelControl *QuickLook::sharedPreviewPanel()
{
    if (!mShared && mProvider) mShared = mProvider();
    return mShared;
}

bool QuickLook::panelIsVisible() const
{
    return mShared && mShared->panelIsVisible();
}
