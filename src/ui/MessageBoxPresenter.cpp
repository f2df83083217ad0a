#include "ui/MessageBoxPresenter.h"

#include "common/Texts.h"

#include <QMessageBox>
#include <QPushButton>

int MessageBoxPresenter::present(const Alerts::Alert &alert)
{
    QMessageBox box(mParent);
    box.setWindowTitle(Texts::appName());
    box.setIcon(alert.style == Alerts::Alert::Style::Critical ? QMessageBox::Critical
                                                              : QMessageBox::Warning);
    box.setText(alert.message);
    box.setInformativeText(alert.informativeText);
    QList<QAbstractButton *> buttons;
    const QString cancel = qtTrId("CancelButton");
    const QString remove = qtTrId("DeleteButton");
    for (qsizetype i = 0; i < alert.buttons.size(); ++i) {
        // The styles mark what cannot be undone, and place Cancel where the desktop expects it.
        QMessageBox::ButtonRole role = i == 0 ? QMessageBox::AcceptRole : QMessageBox::ActionRole;
        if (alert.buttons[i] == cancel)
            role = QMessageBox::RejectRole;
        else if (alert.style == Alerts::Alert::Style::Critical && alert.buttons[i] == remove)
            role = QMessageBox::DestructiveRole;
        QPushButton *b = box.addButton(alert.buttons[i], role);
        if (i == 0) box.setDefaultButton(b);
        if (alert.buttons[i] == cancel) box.setEscapeButton(b);
        buttons.append(b);
    }
    // An alert without buttons still needs one to be closed; it counts as the default.
    if (buttons.isEmpty()) buttons.append(box.addButton(QMessageBox::Ok));
    box.exec();
    return int(buttons.indexOf(box.clickedButton()));
}
