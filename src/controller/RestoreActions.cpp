#include "controller/RestoreActions.h"

#include "browser/Restore.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDeadlineTimer>
#include <QLoggingCategory>
#include <QMimeData>
#include <QThread>

#include <thread>

Q_LOGGING_CATEGORY(lcRestore, "salvora.restore")

namespace RestoreActions {

QByteArrayList makeJob(const QByteArray &destination, const QByteArrayList &sources)
{
    QByteArrayList job{destination};
    job += sources;
    return job;
}

QByteArray fileUrlBytes(const QByteArray &path)
{
    // Everything but the unreserved characters and "/" is escaped, so any byte survives.
    return QByteArrayLiteral("file://") + path.toPercentEncoding("/");
}

QUrl fileUrl(const QByteArray &path)
{
    return QUrl::fromEncoded(fileUrlBytes(path), QUrl::StrictMode);
}

std::optional<QByteArray> pathFromFileUrl(const QUrl &url)
{
    if (!url.isValid() || url.scheme() != QLatin1String("file")) return std::nullopt;
    const QString host = url.host();
    if (!host.isEmpty() && host != QLatin1String("localhost")) return std::nullopt;
    // The encoded form still holds every byte that was not UTF-8 as an escape.
    return QByteArray::fromPercentEncoding(url.path(QUrl::FullyEncoded).toLatin1());
}

QByteArray parentFolder(const QByteArray &path)
{
    const qsizetype slash = path.lastIndexOf('/');
    return slash <= 0 ? QByteArray("/") : path.left(slash);
}

QMimeData *dragMimeData(const QByteArrayList &paths)
{
    QList<QUrl> urls;
    urls.reserve(paths.size());
    for (const QByteArray &p : paths)
        if (const QUrl u = fileUrl(p); u.isValid()) urls.append(u);
    auto *data = new QMimeData;
    data->setUrls(urls);
    return data;
}

QByteArrayList pathsFromMimeData(const QMimeData &data)
{
    QByteArrayList paths;
    for (const QUrl &u : data.urls())
        if (const auto p = pathFromFileUrl(u)) paths.append(*p);
    return paths;
}

} // namespace RestoreActions

CopyJobs::CopyJobs() : mShared(std::make_shared<Shared>()) {}

CopyJobs::~CopyJobs()
{
    stopAll();
}

bool CopyJobs::start(const QByteArrayList &job)
{
    if (job.size() < 2 || job.first().isEmpty() || mStopped) return false;
    auto work = std::make_shared<WorkJob>(WorkJob::Kind::Restore, job.size() - 1);
    if (mProgress) mProgress->track(work);
    mJobs.removeIf([](const std::weak_ptr<WorkJob> &w) { return w.expired(); });
    mJobs.append(work);
    mShared->running.fetch_add(1);
    // The thread owns its copy of the job and shares only the running count and its job's counts and stop flag.
    std::thread([shared = mShared, work, job, hook = mItemHook] {
        Restore::copyItems(job.first(), job.mid(1), work->stopFlag(),
                           [&](const Restore::ItemResult &r) {
                               work->advance();
                               if (hook) hook(r.source);
                           });
        work->finish();
        shared->running.fetch_sub(1);
    }).detach();
    return true;
}

void CopyJobs::stopAll()
{
    mStopped = true;
    for (const std::weak_ptr<WorkJob> &w : std::as_const(mJobs))
        if (const auto work = w.lock()) work->requestStop();
}

void CopyJobs::setItemHookForTesting(std::function<void(const QByteArray &)> hook)
{
    mItemHook = std::move(hook);
}

bool CopyJobs::waitForAll(int timeoutMs) const
{
    const QDeadlineTimer deadline(timeoutMs);
    while (mShared->running.load() > 0) {
        if (deadline.hasExpired()) return false;
        QThread::msleep(5);
    }
    return true;
}

int CopyJobs::running() const
{
    return mShared->running.load();
}

FileManagerReveal::FileManagerReveal(OpenUrl openUrl, QObject *parent, QDBusConnection connection)
    : QObject(parent), mOpenUrl(std::move(openUrl)), mConnection(std::move(connection))
{
}

void FileManagerReveal::reveal(const QByteArrayList &paths)
{
    for (const QByteArray &p : paths)
        reveal(p);
}

void FileManagerReveal::reveal(const QByteArray &path)
{
    if (path.isEmpty()) return;
    QDBusMessage call =
        QDBusMessage::createMethodCall(QLatin1String(kService), QLatin1String(kPath),
                                       QLatin1String(kInterface), QStringLiteral("ShowItems"));
    // The URI is plain ASCII whatever the name's bytes, as D-Bus strings must be UTF-8.
    call << QStringList{QString::fromLatin1(RestoreActions::fileUrlBytes(path))} << QString();
    auto *watcher = new QDBusPendingCallWatcher(mConnection.asyncCall(call, kTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, path](QDBusPendingCallWatcher *w) {
                w->deleteLater();
                const QDBusPendingReply<> reply = *w;
                if (!reply.isError()) {
                    emit revealed(path, true);
                    return;
                }
                qCInfo(lcRestore).noquote()
                    << "no file manager answered:" << reply.error().message();
                if (mOpenUrl) mOpenUrl(RestoreActions::fileUrl(RestoreActions::parentFolder(path)));
                emit revealed(path, false);
            });
}
