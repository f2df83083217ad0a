#include "logic/RestoreActions.h"

#include "browser/Restore.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDeadlineTimer>
#include <QLoggingCategory>
#include <QMimeData>
#include <QThread>

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

QString folderTitle(const QByteArray &folder)
{
    const QByteArray name = Restore::lastComponent(folder);
    return name.isEmpty() ? QStringLiteral("/") : QString::fromUtf8(name);
}

namespace {

QString nameOf(const QByteArray &path)
{
    return QString::fromUtf8(Restore::lastComponent(path));
}

QString namesOf(const QList<QByteArray> &paths)
{
    QStringList names;
    for (const QByteArray &p : paths)
        names.append(nameOf(p));
    return names.join(QLatin1String(", "));
}

} // namespace

Message describe(const RestoreReport &report)
{
    const bool putBack = report.kind == RestoreReport::Kind::PutBack;
    Message m;
    QStringList lines;
    QByteArrayList taken;
    QByteArray takenFolder;
    bool sameFolder = true;
    QByteArray restoredFolder;
    for (const Restore::ItemResult &r : report.results) {
        switch (r.outcome) {
        case Restore::Outcome::Copied:
            if (!m.restored.isEmpty() && parentFolder(r.target) != restoredFolder)
                sameFolder = false;
            restoredFolder = parentFolder(r.target);
            m.restored.append(r.target);
            break;
        case Restore::Outcome::SkippedExisting:
            if (takenFolder.isEmpty()) takenFolder = parentFolder(r.target);
            taken.append(r.target);
            break;
        case Restore::Outcome::Failed:
        case Restore::Outcome::Stopped: {
            //% "stopped"
            const QString why =
                r.outcome == Restore::Outcome::Stopped ? qtTrId("RestoreStopped") : r.error;
            //% "“%1” was not restored: %2"
            lines.append(qtTrId("RestoreItemFailed").arg(nameOf(r.source), why));
            break;
        }
        }
        if (r.outcome == Restore::Outcome::Copied && !r.leftOut.isEmpty()) {
            QStringList pieces;
            for (const Restore::LeftOut &l : r.leftOut)
                pieces.append(QStringLiteral("%1 (%2)").arg(QString::fromUtf8(l.path), l.reason));
            //% "“%1” was restored without what could not be copied: %2"
            lines.append(
                qtTrId("RestorePartial").arg(nameOf(r.target), pieces.join(QLatin1String(", "))));
        }
    }
    for (const QByteArray &u : report.unrecorded)
        //% "“%1” was not put back: where it was deleted from is not known. Use Restore To… instead."
        lines.append(qtTrId("PutBackNoOrigin").arg(nameOf(u)));
    if (taken.size() == 1)
        //% "1 item was not restored because its name is taken in %1: %2"
        lines.prepend(qtTrId("RestoreNameTaken").arg(folderTitle(takenFolder), namesOf(taken)));
    else if (taken.size() > 1)
        //% "%1 items were not restored because their names are taken in %2: %3"
        lines.prepend(
            qtTrId("RestoreNamesTaken")
                .arg(QString::number(taken.size()), folderTitle(takenFolder), namesOf(taken)));
    const qsizetype n = m.restored.size();
    if (n > 0) {
        QString done;
        if (putBack && n == 1)
            //% "1 item put back in %1"
            done = qtTrId("PutBackDone1").arg(folderTitle(restoredFolder));
        else if (putBack && sameFolder)
            //% "%1 items put back in %2"
            done = qtTrId("PutBackDone").arg(QString::number(n), folderTitle(restoredFolder));
        else if (putBack)
            //% "%1 items put back where they were"
            done = qtTrId("PutBackDoneMany").arg(n);
        else if (n == 1)
            //% "1 item restored to %1"
            done = qtTrId("RestoreDone1").arg(folderTitle(report.destination));
        else
            //% "%1 items restored to %2"
            done = qtTrId("RestoreDone").arg(QString::number(n), folderTitle(report.destination));
        lines.prepend(done);
    }
    m.text = lines.join(QLatin1Char('\n'));
    const bool problems = !taken.isEmpty() || lines.size() > (n > 0 ? 1 : 0);
    m.level = !problems
                  ? Message::Level::Success
                  : (n > 0 || !taken.isEmpty() ? Message::Level::Warning : Message::Level::Error);
    return m;
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
    // The thread owns its copy of the job and shares only the running count and its job's counts
    // and stop flag.
    Jobs::start(
        [shared = mShared, work, job, hook = mItemHook, mailbox = mMailbox, reporter = mReporter] {
            RestoreReport report;
            report.destination = job.first();
            report.results = Restore::copyItems(job.first(), job.mid(1), work->stopFlag(),
                                                [&](const Restore::ItemResult &r) {
                                                    work->advance();
                                                    if (hook) hook(r.source);
                                                });
            work->finish();
            if (mailbox && reporter) mailbox->post([reporter, report] { reporter(report); });
            shared->running.fetch_sub(1);
        });
    return true;
}

void CopyJobs::setReporter(std::shared_ptr<Mailbox> mailbox, Reporter reporter)
{
    mMailbox = std::move(mailbox);
    mReporter = std::move(reporter);
}

bool CopyJobs::startPutBack(const QList<QPair<QByteArray, QByteArray>> &items, Restore::Clash clash,
                            const QByteArrayList &unrecorded)
{
    if (mStopped || (items.isEmpty() && unrecorded.isEmpty())) return false;
    auto work = std::make_shared<WorkJob>(WorkJob::Kind::Restore, items.size());
    if (mProgress) mProgress->track(work);
    mJobs.removeIf([](const std::weak_ptr<WorkJob> &w) { return w.expired(); });
    mJobs.append(work);
    mShared->running.fetch_add(1);
    Jobs::start([shared = mShared, work, items, clash, unrecorded, hook = mItemHook,
                 mailbox = mMailbox, reporter = mReporter] {
        RestoreReport report;
        report.kind = RestoreReport::Kind::PutBack;
        report.unrecorded = unrecorded;
        for (const auto &[cached, original] : items) {
            if (work->stopRequested()) break;
            report.results.append(Restore::putBack(cached, original, clash, work->stopFlag()));
            work->advance();
            if (hook) hook(cached);
        }
        work->finish();
        if (mailbox && reporter) mailbox->post([reporter, report] { reporter(report); });
        shared->running.fetch_sub(1);
    });
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
