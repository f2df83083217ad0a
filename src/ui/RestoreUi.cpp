#include "ui/RestoreUi.h"

#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>

namespace RestoreUi {

namespace {
QString &lastFolder()
{
    static QString folder;
    return folder;
}
} // namespace

QString startFolder()
{
    const QString last = lastFolder();
    return !last.isEmpty() && QFileInfo(last).isDir() ? last : QDir::homePath();
}

std::optional<QByteArray> chooseDestinationFolder(QWidget *parent)
{
    //% "Restore To"
    const QString folder = QFileDialog::getExistingDirectory(
        parent, qtTrId("RestoreToTitle"), startFolder(), QFileDialog::ShowDirsOnly);
    if (folder.isEmpty()) return std::nullopt;
    lastFolder() = folder;
    return QFile::encodeName(folder);
}

bool openUrl(const QUrl &url)
{
    return QDesktopServices::openUrl(url);
}

} // namespace RestoreUi
