#pragma once

#include <QByteArrayList>
#include <QUrl>

#include <optional>

class QWidget;

// The desktop's side of restoring: the folder chooser and opening a location.
namespace RestoreUi {

// A modal folder chooser titled "Restore To" (one folder; new folders can be made in it), starting
// in the folder chosen last, else the home folder. nullopt when cancelled.
std::optional<QByteArray> chooseDestinationFolder(QWidget *parent);
QString startFolder();
// The file manager reveal's fallback: QDesktopServices::openUrl.
bool openUrl(const QUrl &url);

} // namespace RestoreUi
