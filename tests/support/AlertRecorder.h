#pragma once

#include "common/Alerts.h"

#include <QList>

// The user in front of the alerts: answers from `answers` in turn (-1: closed without a button),
// then with `otherwise`, and keeps every alert shown. Presents while it lives.
class AlertRecorder : public Alerts::Presenter
{
public:
    explicit AlertRecorder(int otherwise = 0) : otherwise(otherwise) { Alerts::setPresenter(this); }
    ~AlertRecorder() override { Alerts::setPresenter(nullptr); }
    AlertRecorder(const AlertRecorder &) = delete;
    AlertRecorder &operator=(const AlertRecorder &) = delete;

    QList<Alerts::Alert> shown;
    QList<int> answers;
    int otherwise;
    int present(const Alerts::Alert &alert) override
    {
        shown.append(alert);
        return answers.isEmpty() ? otherwise : answers.takeFirst();
    }
};
