#include "controller/AppDelegate.h"

#include "browser/DayTexts.h"
#include "cache/CacheLayout.h"
#include "common/SizeText.h"
#include "logic/IncompleteLookup.h"
#include "ui/TableView.h"
#include "ui/ZEL_Colors.h"
#include "volumes/Volumes.h"

#include <QDateTime>
#include <QFile>
#include <QFileIconProvider>
#include <QLabel>
#include <QLocale>
#include <QMimeDatabase>
#include <QTimer>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

QVariant alignment(Qt::Alignment a)
{
    return QVariant::fromValue(int(a | Qt::AlignVCenter));
}

// Sizes of rows not read yet, and of rows that could not be read.
constexpr std::int64_t kNotRead = -1;
constexpr std::int64_t kUnreadable = -2;

} // namespace

int AppDelegate::numberOfRowsInTableView(const TableModel *table)
{
    if (table == mDateModel) return int(mDates.size());
    if (table == mContentsModel) return int(mContents.size());
    return 0;
}

QVariant AppDelegate::cellValue(const TableModel *table, int row, const QString &column, int role)
{
    if (table == mDateModel) return row < mDates.size() ? dayCell(row, column, role) : QVariant();
    if (table == mContentsModel)
        return row < mContents.size() ? contentsCell(row, column, role) : QVariant();
    return {};
}

QVariant AppDelegate::dayCell(int row, const QString &column, int role) const
{
    const DayEntry &day = mDates[row];
    const int c = column.size() == 1 ? column[0].unicode() - '0' : 0;
    switch (role) {
    case Qt::DisplayRole:
        if (c == 1) return CommonUtils::dateStringForCacheFolder(day.name);
        if (c == 2) return CommonUtils::getSizeStr(day.size);
        if (c == 3) return CommonUtils::getQtyStr(day.count);
        return QString();
    case Qt::TextAlignmentRole:
        return alignment(c == 1 ? Qt::AlignHCenter : Qt::AlignRight);
    case Qt::FontRole:
        return TableModel::fontOfSize(c == 1 ? 13 : 12);
    case Qt::ForegroundRole:
        if (c == 1)
            return mVolumeNotMounted ? ZEL_Colors::getGrayColor_Adaptable()
                                     : ZEL_Colors::getBlackColor_Adaptable();
        return ZEL_Colors::getDarkGrayColor_Adaptable();
    default:
        return {};
    }
}

void AppDelegate::readItemAttributes(qsizetype row)
{
    // Read once per row and kept with it: painting a million-row list asks again and again.
    CacheItems::Row &r = mContents.rows()[std::size_t(row)];
    if (r.size != kNotRead) return;
    struct stat st
    {
    };
    if (lstat(mContents.fullPath(row).constData(), &st) != 0) {
        r.size = kUnreadable;
        return;
    }
    if (S_ISDIR(st.st_mode)) {
        r.kind = CacheItems::Kind::Folder;
        r.size = 0;
    } else {
        r.kind = S_ISREG(st.st_mode)
                     ? CacheItems::Kind::File
                     : (S_ISLNK(st.st_mode) ? CacheItems::Kind::Link : CacheItems::Kind::Other);
        r.size = std::int64_t(st.st_size);
    }
}

QIcon AppDelegate::iconForItem(qsizetype row)
{
    const CacheItems::Row &r = mContents.row(row);
    if (r.size == kUnreadable) return {};
    QString key;
    if (r.kind == CacheItems::Kind::Folder)
        key = QStringLiteral("inode/directory");
    else if (r.kind == CacheItems::Kind::Link)
        key = QStringLiteral("inode/symlink");
    else
        key = QMimeDatabase()
                  .mimeTypeForFile(mContents.displayName(row), QMimeDatabase::MatchExtension)
                  .name();
    auto it = mIconCache.constFind(key);
    if (it != mIconCache.cend()) return *it;
    QIcon icon;
    if (r.kind == CacheItems::Kind::Folder) {
        icon = QFileIconProvider().icon(QFileIconProvider::Folder);
    } else {
        const QMimeType mime = QMimeDatabase().mimeTypeForName(key);
        icon = QIcon::fromTheme(mime.iconName(), QIcon::fromTheme(mime.genericIconName()));
        if (icon.isNull()) icon = QFileIconProvider().icon(QFileIconProvider::File);
    }
    mIconCache.insert(key, icon);
    return icon;
}

const CacheCommit::Completeness *AppDelegate::incompleteOf(qsizetype row)
{
    if (!mIncomplete) return nullptr;
    const CacheItems::Row &r = mContents.row(row);
    return mIncomplete->find(mContents.timeFolderPath(r.folder), mContents.name(r));
}

QVariant AppDelegate::contentsCell(int row, const QString &column, int role)
{
    const int c = column.size() == 1 ? column[0].unicode() - '0' : 0;
    // The picture that follows the pointer in a drag: names only, light on blue.
    if (mDrawingDragImage) {
        switch (role) {
        case Qt::DisplayRole:
            return c == 1 ? mContents.displayName(row) : QString();
        case Qt::DecorationRole:
            if (c != 1) return {};
            readItemAttributes(row);
            return iconForItem(row);
        case Qt::BackgroundRole:
            return c == 1 ? QVariant(ZEL_Colors::getBlueColor_Adaptable()) : QVariant();
        case Qt::ForegroundRole:
            return ZEL_Colors::getControlBackground_Adaptable();
        case Qt::FontRole:
            return TableModel::fontOfSize(13);
        default:
            return {};
        }
    }
    switch (role) {
    case Qt::DisplayRole:
        if (c == 1) return mContents.displayName(row);
        if (c == 2) {
            readItemAttributes(row);
            const CacheItems::Row &r = mContents.row(row);
            if (r.size < 0 || r.kind == CacheItems::Kind::Folder) return QString();
            return CommonUtils::getSizeStr(r.size);
        }
        if (c == 3)
            return DayTexts::cachingTime(mContents.timeFolderName(mContents.row(row).folder));
        if (c == 4) return QFile::decodeName(mContents.originFolder(mContents.row(row)));
        return QString();
    case Qt::ToolTipRole:
        // The whole folder, which the column shortens in the middle.
        if (c == 4) return QFile::decodeName(mContents.originFolder(mContents.row(row)));
        if (const CacheCommit::Completeness *part = c == 1 ? incompleteOf(row) : nullptr)
            return IncompleteItems::describe(*part);
        return {};
    case Qt::DecorationRole:
        if (c != 1) return {};
        readItemAttributes(row);
        return iconForItem(row);
    case Qt::TextAlignmentRole:
        return alignment(c == 1 || c == 4 ? Qt::AlignLeading
                                          : (c == 2 ? Qt::AlignRight : Qt::AlignHCenter));
    case Qt::FontRole: {
        QFont font = TableModel::fontOfSize(c == 1 ? 13 : (c == 2 || c == 4 ? 12 : 11));
        // An item kept only in part is in italics, its tip says what is missing.
        if (c == 1 && incompleteOf(row)) font.setItalic(true);
        return font;
    }
    case Qt::ForegroundRole:
        return c == 1 ? ZEL_Colors::getBlackColor_Adaptable()
                      : ZEL_Colors::getDarkGrayColor_Adaptable();
    default:
        return {};
    }
}

void AppDelegate::tableViewSelectionDidChange(TableView *table)
{
    if (table == mTableViewDate)
        clickDateList();
    else if (table == mTableViewContents)
        clickContentsList();
}

void AppDelegate::sortDescriptorsDidChange(bool ascending)
{
    mSortAscending = ascending;
}

void AppDelegate::didClickTableColumn(const QString &identifier)
{
    SortOrder order;
    if (identifier == QLatin1String("1"))
        order.key = SortOrder::Name;
    else if (identifier == QLatin1String("3"))
        order.key = SortOrder::Time;
    else if (identifier == QLatin1String("4"))
        order.key = SortOrder::Origin;
    else
        return; // the list cannot be sorted by size
    order.descending = !mSortAscending;
    mSortByCaching = order.code();
    sortContents();
}

void AppDelegate::clickContentsList()
{
    const int s = mTableViewContents->selectedRow();
    QString text;
    if (s < 0 || s >= mContents.size()) {
        const qsizetype n = mContents.size();
        if (n == 1)
            text = qtTrId("ContentsMessage");
        else
            text = qtTrId("ContentsMessages").arg(QString::asprintf("%d", int(n)));
    } else {
        const QByteArray path = mContents.fullPath(s);
        text = mContents.displayName(s);
        struct stat st
        {
        };
        if (lstat(path.constData(), &st) == 0) {
            text += QLatin1Char('\n');
            text += QLocale().toString(QDateTime::fromSecsSinceEpoch(st.st_mtim.tv_sec),
                                       QLocale::ShortFormat);
            if (S_ISDIR(st.st_mode))
                QTimer::singleShot(100, Qt::PreciseTimer, this,
                                   [this, path] { calcSizeContents(path); });
            else
                text += QLatin1String(" - ") + CommonUtils::getSizeStr(qint64(st.st_size));
        }
    }
    setText(mContentsInfos, text, &ZEL_Colors::getDarkGrayColor_Adaptable);
    enableToolBarItem(QStringLiteral("copyButton"), s >= 0);
    enableToolBarItem(QStringLiteral("removeButton"), s >= 0);
    updatePutBackAction();
}
