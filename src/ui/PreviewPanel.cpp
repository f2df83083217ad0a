#include "ui/PreviewPanel.h"

#include "browser/Restore.h"
#include "common/Jobs.h"
#include "common/SizeText.h"

#include <QApplication>
#include <QCloseEvent>
#include <QFile>
#include <QFileIconProvider>
#include <QFontDatabase>
#include <QImageReader>
#include <QKeyEvent>
#include <QLabel>
#include <QLocale>
#include <QMimeDatabase>
#include <QPainter>
#include <QPlainTextEdit>
#include <QPointer>
#include <QScreen>
#include <QStackedWidget>
#include <QThread>
#include <QVBoxLayout>

#ifdef SALVORA_HAVE_QTPDF
#include <QPdfDocument>
#endif

#include <algorithm>
#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

// An image drawn as large as the panel allows, never enlarged, aspect kept.
class PreviewImageView : public QWidget
{
public:
    using QWidget::QWidget;
    void setImage(const QImage &image)
    {
        mImage = image;
        update();
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        if (mImage.isNull()) return;
        QPainter p(this);
        p.setRenderHint(QPainter::SmoothPixmapTransform);
        const QSize area = size();
        QSize target = mImage.size();
        if (target.width() > area.width() || target.height() > area.height())
            target.scale(area, Qt::KeepAspectRatio);
        const QRect r(
            QPoint((area.width() - target.width()) / 2, (area.height() - target.height()) / 2),
            target);
        p.drawImage(r, mImage);
    }

private:
    QImage mImage;
};

// Carries finished loads back to the GUI thread. Shared by the panel and its loading threads,
// so that a thread that ends after the panel still has somewhere to put its result.
class PreviewDelivery : public QObject
{
    Q_OBJECT
public:
    std::mutex mutex;
    std::optional<std::pair<quint64, PreviewPanel::Preview>> ready; // the newest result
    QPointer<PreviewPanel> panel;                                   // GUI thread only

    ~PreviewDelivery() override
    {
        // The last result may have been left by a thread that ended after the panel.
        const std::lock_guard lock(mutex);
        ready.reset();
    }

public slots:
    void deliver()
    {
        std::optional<std::pair<quint64, PreviewPanel::Preview>> taken;
        {
            const std::lock_guard lock(mutex);
            taken.swap(ready);
        }
        if (taken && panel) panel->display(taken->first, taken->second);
    }
};

namespace {

QImage readImage(QFile &file)
{
    QImageReader reader(&file);
    reader.setAutoTransform(true);
    const QSize full = reader.size();
    if (full.isValid() &&
        (full.width() > PreviewPanel::kImageLimit || full.height() > PreviewPanel::kImageLimit))
        reader.setScaledSize(
            full.scaled(PreviewPanel::kImageLimit, PreviewPanel::kImageLimit, Qt::KeepAspectRatio));
    return reader.read();
}

#ifdef SALVORA_HAVE_QTPDF
QImage renderFirstPage(int fd)
{
    // By descriptor: the file's own name may not be valid UTF-8.
    QPdfDocument doc;
    if (doc.load(QStringLiteral("/proc/self/fd/%1").arg(fd)) != QPdfDocument::Error::None ||
        doc.pageCount() < 1)
        return {};
    QSize size = (doc.pagePointSize(0) * 2.0).toSize();
    if (size.isEmpty()) return {};
    if (size.width() > PreviewPanel::kImageLimit || size.height() > PreviewPanel::kImageLimit)
        size.scale(PreviewPanel::kImageLimit, PreviewPanel::kImageLimit, Qt::KeepAspectRatio);
    return doc.render(0, size);
}
#endif

} // namespace

bool PreviewPanel::hasPdfSupport()
{
#ifdef SALVORA_HAVE_QTPDF
    return true;
#else
    return false;
#endif
}

PreviewPanel::Preview PreviewPanel::load(const QByteArray &path)
{
    Preview p;
    p.path = path;
    p.kind = Kind::Info;
    p.name = QString::fromUtf8(Restore::lastComponent(path));
    struct stat st
    {
    };
    if (path.isEmpty() || ::stat(path.constData(), &st) != 0) return p;
    p.exists = true;
    p.isFolder = S_ISDIR(st.st_mode);
    // In UTC: the local time zone is looked up on the GUI thread only (glibc's tzset is not
    // meant to be raced).
    p.modified = QDateTime::fromSecsSinceEpoch(st.st_mtim.tv_sec, Qt::UTC);
    const QMimeDatabase db;
    if (!S_ISREG(st.st_mode)) {
        const QMimeType mime = db.mimeTypeForName(p.isFolder ? QStringLiteral("inode/directory")
                                                             : QStringLiteral("inode/x-corrupted"));
        p.kindText = mime.comment();
        p.iconName = mime.iconName();
        return p;
    }
    p.size = st.st_size;

    const int fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    QFile file;
    if (fd < 0 || !file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        if (fd >= 0) ::close(fd);
        const QMimeType mime = db.mimeTypeForFile(p.name, QMimeDatabase::MatchExtension);
        p.kindText = mime.comment();
        p.iconName = mime.iconName();
        return p;
    }
    const QMimeType mime = db.mimeTypeForFileNameAndData(p.name, &file);
    file.seek(0);
    p.kindText = mime.comment();
    p.iconName = mime.iconName();

    if (QImageReader::supportedMimeTypes().contains(mime.name().toLatin1())) {
        p.image = readImage(file);
        if (!p.image.isNull()) {
            p.kind = Kind::Image;
            return p;
        }
        file.seek(0);
    }
#ifdef SALVORA_HAVE_QTPDF
    if (mime.inherits(QStringLiteral("application/pdf"))) {
        p.image = renderFirstPage(file.handle());
        if (!p.image.isNull()) {
            p.kind = Kind::Pdf;
            return p;
        }
    }
#endif
    if (mime.inherits(QStringLiteral("text/plain"))) {
        const QByteArray data = file.read(kTextLimit);
        p.text = QString::fromUtf8(data);
        p.textTruncated = st.st_size > kTextLimit;
        p.kind = Kind::Text;
    }
    return p;
}

PreviewPanel::PreviewPanel(QWidget *parent)
    : QWidget(parent, Qt::Tool), mDelivery(new PreviewDelivery, [](PreviewDelivery *d) {
          // The last owner may be a loading thread; the object belongs to the GUI thread.
          if (QThread::currentThread() == d->thread())
              delete d;
          else
              d->deleteLater();
      })
{
    mDelivery->panel = this;
    //% "Preview"
    setWindowTitle(qtTrId("PreviewTitle"));
    resize(560, 480);
    mPages = new QStackedWidget(this);
    mImage = new PreviewImageView(mPages);
    mText = new QPlainTextEdit(mPages);
    mText->setReadOnly(true);
    mText->setLineWrapMode(QPlainTextEdit::NoWrap);
    mText->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    auto *info = new QWidget(mPages);
    mIcon = new QLabel(info);
    mIcon->setAlignment(Qt::AlignCenter);
    mDetails = new QLabel(info);
    mDetails->setAlignment(Qt::AlignCenter);
    mDetails->setWordWrap(true);
    mDetails->setTextFormat(Qt::PlainText);
    auto *infoLayout = new QVBoxLayout(info);
    infoLayout->addStretch();
    infoLayout->addWidget(mIcon);
    infoLayout->addWidget(mDetails);
    infoLayout->addStretch();
    mPages->addWidget(mImage);
    mPages->addWidget(mText);
    mPages->addWidget(info);
    mInfo = new QLabel(this);
    mInfo->setTextFormat(Qt::PlainText);
    mInfo->setAlignment(Qt::AlignCenter);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(mPages, 1);
    layout->addWidget(mInfo);
}

PreviewPanel::~PreviewPanel() = default;

void PreviewPanel::orderOut()
{
    hide();
}

void PreviewPanel::reloadData()
{
    const quint64 generation = ++mGeneration;
    const QByteArray path = mDataSource && mDataSource->numberOfPreviewItems() > 0
                                ? mDataSource->previewItemAtIndex(0)
                                : QByteArray();
    if (path.isEmpty()) {
        display(generation, Preview());
        return;
    }
    // The thread owns its request and shares only the delivery, which outlives the panel if it
    // must; a result for an item the panel has moved on from is dropped there.
    Jobs::start([delivery = mDelivery, generation, path] {
        Preview p = load(path);
        {
            const std::lock_guard lock(delivery->mutex);
            if (!delivery->ready || delivery->ready->first < generation)
                delivery->ready.emplace(generation, std::move(p));
        }
        // By name, so that nothing but the call itself crosses to the GUI thread.
        QMetaObject::invokeMethod(delivery.get(), "deliver", Qt::QueuedConnection);
    });
}

void PreviewPanel::makeKeyAndOrderFront()
{
    // Opened over the window it belongs to, and wholly on its screen.
    if (!isVisible() && parentWidget()) {
        const QWidget *main = parentWidget()->window();
        QRect r(QPoint(), frameGeometry().size());
        r.moveCenter(main->frameGeometry().center());
        if (const QScreen *screen = main->screen()) {
            const QRect room = screen->availableGeometry();
            r.moveLeft(std::max(room.left(), std::min(r.left(), room.right() + 1 - r.width())));
            r.moveTop(std::max(room.top(), std::min(r.top(), room.bottom() + 1 - r.height())));
        }
        move(r.topLeft());
    }
    QWidget::show();
    raise();
    activateWindow();
}

QString PreviewPanel::infoLine() const
{
    const Preview &p = mShown;
    if (p.kind == Kind::Nothing) return QString();
    QStringList parts{p.name};
    if (!p.kindText.isEmpty()) parts.append(p.kindText);
    if (p.size >= 0) parts.append(CommonUtils::getSizeStr(p.size));
    if (p.modified.isValid())
        parts.append(QLocale().toString(p.modified.toLocalTime(), QLocale::ShortFormat));
    return parts.join(QStringLiteral(" - "));
}

void PreviewPanel::display(quint64 generation, const Preview &preview)
{
    if (generation != mGeneration) return;
    mShown = preview;
    switch (preview.kind) {
    case Kind::Image:
    case Kind::Pdf:
        mImage->setImage(preview.image);
        mPages->setCurrentWidget(mImage);
        break;
    case Kind::Text:
        mText->setPlainText(preview.text);
        mPages->setCurrentWidget(mText);
        break;
    case Kind::Nothing:
    case Kind::Info: {
        QIcon icon = QIcon::fromTheme(preview.iconName);
        if (icon.isNull())
            icon = QFileIconProvider().icon(preview.isFolder ? QFileIconProvider::Folder
                                                             : QFileIconProvider::File);
        mIcon->setPixmap(preview.kind == Kind::Nothing ? QPixmap() : icon.pixmap(128, 128));
        mDetails->setText(preview.kind == Kind::Nothing ? QString() : preview.name);
        mPages->setCurrentIndex(2);
        break;
    }
    }
    mInfo->setText(infoLine());
    if (!preview.name.isEmpty()) setWindowTitle(preview.name);
    emit loaded();
}

void PreviewPanel::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Space || event->key() == Qt::Key_Escape) {
        close();
        return;
    }
    QWidget::keyPressEvent(event);
}

void PreviewPanel::closeEvent(QCloseEvent *event)
{
    event->accept();
    QWidget::closeEvent(event);
    emit panelClosed();
}

#include "PreviewPanel.moc"
