#include "MidnightTimer.h"

#include <QDateTime>
#include <QSocketNotifier>

#include <cerrno>
#include <cstdint>
#include <sys/timerfd.h>
#include <unistd.h>

MidnightTimer::MidnightTimer(QObject *parent) : QObject(parent)
{
    mFd.reset(timerfd_create(CLOCK_REALTIME, TFD_NONBLOCK | TFD_CLOEXEC));
    if (mFd.fd < 0) return;
    mNotifier = new QSocketNotifier(mFd.fd, QSocketNotifier::Read, this);
    connect(mNotifier, &QSocketNotifier::activated, this, &MidnightTimer::onReady);
    arm();
}

void MidnightTimer::arm()
{
    // One second past midnight, so that "today" has certainly changed when it fires.
    mDay = QDate::currentDate();
    const QDateTime next(mDay.addDays(1), QTime(0, 0, 1));
    itimerspec spec{};
    spec.it_value.tv_sec = next.toSecsSinceEpoch();
    // A change of the clock cancels the timer: it is armed again for the new "next midnight".
    timerfd_settime(mFd.fd, TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &spec, nullptr);
}

void MidnightTimer::onReady()
{
    std::uint64_t expirations = 0;
    const ssize_t n = ::read(mFd.fd, &expirations, sizeof expirations);
    const bool cancelled = n < 0 && errno == ECANCELED;
    // A clock set across midnight counts as midnight.
    const bool newDay = QDate::currentDate() != mDay;
    arm();
    if ((!cancelled && n == ssize_t(sizeof expirations)) || (cancelled && newDay)) emit midnight();
}
