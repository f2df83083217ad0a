#include "ui/RestoreUi.h"

#include "controller/RestoreActions.h"

#include <QDesktopServices>
#include <QFile>
#include <QFileDialog>

namespace RestoreUi {

std::optional<QByteArray> chooseDestinationFolder(QWidget *parent)
{
    const QString folder =
        QFileDialog::getExistingDirectory(parent, QString(), QString(), QFileDialog::ShowDirsOnly);
    if (folder.isEmpty()) return std::nullopt;
    return QFile::encodeName(folder);
}

bool copySelectedItems(QWidget *parent, const QByteArrayList &selectedPaths, CopyJobs &jobs)
{
    if (selectedPaths.isEmpty()) return false;
    const std::optional<QByteArray> destination = chooseDestinationFolder(parent);
    if (!destination) return false;
    return jobs.start(RestoreActions::makeJob(*destination, selectedPaths));
}

bool openUrl(const QUrl &url)
{
    return QDesktopServices::openUrl(url);
}

} // namespace RestoreUi
