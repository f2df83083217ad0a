// sv3daemon-agent: the daemon's unprivileged part, started by sv3daemon with the socket of the
// privileged helper, or alone (then without any help for root-owned folders).

#include "Agent.h"
#include "PrivilegedClient.h"
#include "Shadow.h"
#include "common/Log.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QSocketNotifier>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace {

long numberArgument(int argc, char **argv, const char *prefix)
{
    const std::size_t n = std::strlen(prefix);
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], prefix, n) != 0) continue;
        char *end = nullptr;
        const long v = std::strtol(argv[i] + n, &end, 10);
        if (end && *end == '\0' && v >= 0) return v;
    }
    return -1;
}

} // namespace

int main(int argc, char **argv)
{
    const long fd = numberArgument(argc, argv, "--privileged-fd=");
    const long helper = numberArgument(argc, argv, "--privileged-pid=");

    // Termination arrives through a descriptor, so that the agent quits from its event loop and
    // every thread Qt starts inherits the blocked mask.
    sigset_t quitSignals;
    sigemptyset(&quitSignals);
    for (int s : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&quitSignals, s);
    pthread_sigmask(SIG_BLOCK, &quitSignals, nullptr);

    // Taking a shadow holds the item's files open (Shadow.h): as many as the system allows, with
    // room left for everything else.
    rlimit files{};
    if (getrlimit(RLIMIT_NOFILE, &files) == 0) {
        // sv3daemon raised the hard limit before it dropped its privileges (so may root here).
        const rlimit wide{1 << 20, 1 << 20};
        if (setrlimit(RLIMIT_NOFILE, &wide) != 0) {
            files.rlim_cur = files.rlim_max;
            setrlimit(RLIMIT_NOFILE, &files);
        }
        getrlimit(RLIMIT_NOFILE, &files);
        const long limit = long(std::min<rlim_t>(files.rlim_cur, 1 << 20));
        Shadow::Mirror::setHoldLimit(limit > 4096 ? limit - 512 : limit / 2);
        // The descriptor table grows in steps, each of which waits for an RCU grace period once
        // the process has threads (milliseconds): grown once now, for the first 64 Ki files.
        const int high = int(std::min<rlim_t>(files.rlim_cur, 1 << 16)) - 1;
        if (high > 2 && dup2(STDERR_FILENO, high) == high) ::close(high);
    }

    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("sv3daemon"));
    PrivilegedClient privileged{int(fd), pid_t(helper)};

    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        qCritical("sv3daemon: no session bus: %s", qPrintable(bus.lastError().message()));
        return 1;
    }
    // One daemon per session: whoever holds the name is it.
    if (!bus.registerService(QLatin1String(Notifications::kDaemonService))) return 0;

    Agent agent(&privileged);
    if (!agent.start()) return 1;

    const int sfd = signalfd(-1, &quitSignals, SFD_NONBLOCK | SFD_CLOEXEC);
    QSocketNotifier quitNotifier(sfd, QSocketNotifier::Read);
    QObject::connect(&quitNotifier, &QSocketNotifier::activated, &app,
                     [] { QCoreApplication::quit(); });
    // Logging out closes the session bus; an agent left behind would keep its root helper too.
    NotificationBus::whenSessionEnds(&app, [] {
        CommonUtils::addToLogFile(QStringLiteral("sv3daemon: the session bus is gone."));
        QCoreApplication::quit();
    });

    const int rc = QCoreApplication::exec();
    CommonUtils::addToLogFile(QStringLiteral("sv3daemon quits."));
    ::close(sfd);
    return rc;
}
