#pragma once

#include "common/Alerts.h"

#include <QPointer>
#include <QWidget>

// The alerts of the core, shown as message boxes over the window. The first button is the
// default (Return presses it); as on the platform the product comes from, Escape presses the
// button titled like "CancelButton" when there is one.
class MessageBoxPresenter : public Alerts::Presenter
{
public:
    explicit MessageBoxPresenter(QWidget *parent = nullptr) : mParent(parent) {}
    void setParent(QWidget *parent) { mParent = parent; }

    int present(const Alerts::Alert &alert) override;

private:
    QPointer<QWidget> mParent;
};
