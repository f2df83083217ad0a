#pragma once

#include "UniqueFd.h"

#include <QDate>
#include <QObject>

class QSocketNotifier;

// Fires at every local midnight, by the wall clock: a timerfd on CLOCK_REALTIME, so a suspended
// machine or a clock set forward still fires on the right day, and nothing wakes in between.
class MidnightTimer : public QObject
{
    Q_OBJECT
public:
    explicit MidnightTimer(QObject *parent = nullptr);
    bool isValid() const { return mFd.fd >= 0; }

signals:
    void midnight();

private:
    void arm();
    void onReady();

    UniqueFd mFd;
    QSocketNotifier *mNotifier = nullptr;
    QDate mDay;
};
