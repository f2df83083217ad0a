#include "common/QuitSignals.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

int gPipe[2] = {-1, -1};
volatile std::sig_atomic_t gRequested = 0;

void onSignal(int)
{
    const int saved = errno;
    gRequested = 1;
    const char byte = 1;
    [[maybe_unused]] const ssize_t n = ::write(gPipe[1], &byte, 1);
    errno = saved;
}

} // namespace

namespace QuitSignals {

bool requested()
{
    return gRequested != 0;
}

bool install()
{
    if (gPipe[0] >= 0) return true;
    if (pipe2(gPipe, O_CLOEXEC | O_NONBLOCK) != 0) return false;
    auto *notifier =
        new QSocketNotifier(gPipe[0], QSocketNotifier::Read, QCoreApplication::instance());
    QObject::connect(notifier, &QSocketNotifier::activated, notifier, [] {
        char buf[16];
        while (::read(gPipe[0], buf, sizeof buf) > 0) {
        }
        // exit(), not quit(): it also ends the loops of dialogs shown before the main loop ran.
        QCoreApplication::exit(0);
    });
    struct sigaction sa
    {
    };
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    return sigaction(SIGTERM, &sa, nullptr) == 0 && sigaction(SIGINT, &sa, nullptr) == 0;
}

} // namespace QuitSignals
