#include "ui/MessageBar.h"

#include <QApplication>
#include <QEvent>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QStyle>
#include <QToolButton>

MessageBar::MessageBar(QWidget *parent) : QFrame(parent)
{
    setObjectName(QStringLiteral("messageBar"));
    setFrameShape(QFrame::StyledPanel);
    setAutoFillBackground(true);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(8, 4, 4, 4);
    mIcon = new QLabel(this);
    mText = new QLabel(this);
    mText->setObjectName(QStringLiteral("messageBarText"));
    // Names are shown as they are, never as markup.
    mText->setTextFormat(Qt::PlainText);
    mText->setWordWrap(true);
    mText->setTextInteractionFlags(Qt::TextSelectableByMouse);
    mText->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    mAction = new QPushButton(this);
    mAction->setObjectName(QStringLiteral("messageBarAction"));
    mClose = new QToolButton(this);
    mClose->setObjectName(QStringLiteral("messageBarClose"));
    mClose->setAutoRaise(true);
    mClose->setIcon(
        QIcon::fromTheme(QStringLiteral("window-close-symbolic"),
                         QIcon::fromTheme(QStringLiteral("window-close"),
                                          style()->standardIcon(QStyle::SP_TitleBarCloseButton))));
    //% "Dismiss"
    mClose->setToolTip(qtTrId("MessageBarDismiss"));
    mClose->setAccessibleName(mClose->toolTip());
    layout->addWidget(mIcon, 0, Qt::AlignTop);
    layout->addWidget(mText, 1);
    layout->addWidget(mAction, 0, Qt::AlignTop);
    layout->addWidget(mClose, 0, Qt::AlignTop);
    connect(mAction, &QPushButton::clicked, this, [this] {
        if (mActionFn) mActionFn();
    });
    connect(mClose, &QToolButton::clicked, this, &MessageBar::dismiss);
    hide();
}

void MessageBar::showMessage(Level level, const QString &text, const QString &actionText,
                             std::function<void()> action)
{
    mLevel = level;
    mText->setText(text);
    mActionFn = std::move(action);
    mAction->setText(actionText);
    mAction->setVisible(!actionText.isEmpty());
    const char *icon = level == Level::Success   ? "dialog-information"
                       : level == Level::Warning ? "dialog-warning"
                                                 : "dialog-error";
    const QStyle::StandardPixmap fallback =
        level == Level::Success   ? QStyle::SP_MessageBoxInformation
        : level == Level::Warning ? QStyle::SP_MessageBoxWarning
                                  : QStyle::SP_MessageBoxCritical;
    const int side = style()->pixelMetric(QStyle::PM_SmallIconSize, nullptr, this);
    mIcon->setPixmap(
        QIcon::fromTheme(QLatin1String(icon), style()->standardIcon(fallback)).pixmap(side, side));
    setAccessibleDescription(text);
    applyColors();
    show();
}

void MessageBar::dismiss()
{
    mActionFn = {};
    hide();
}

QString MessageBar::text() const
{
    return mText->text();
}

void MessageBar::changeEvent(QEvent *event)
{
    QFrame::changeEvent(event);
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::StyleChange) {
        if (!mRecoloring) applyColors();
    }
}

void MessageBar::applyColors()
{
    // A tint of the level's colour over the window's own background: readable in light and
    // dark styles alike.
    mRecoloring = true;
    const QPalette base = QApplication::palette(this);
    const QColor tint = mLevel == Level::Success   ? QColor(0x3d, 0xae, 0xe9)
                        : mLevel == Level::Warning ? QColor(0xf6, 0x74, 0x00)
                                                   : QColor(0xda, 0x44, 0x53);
    const QColor window = base.color(QPalette::Window);
    auto mix = [](const QColor &a, const QColor &b, double t) {
        return QColor::fromRgbF(float(a.redF() * (1 - t) + b.redF() * t),
                                float(a.greenF() * (1 - t) + b.greenF() * t),
                                float(a.blueF() * (1 - t) + b.blueF() * t));
    };
    QPalette p = palette();
    p.setColor(QPalette::Window, mix(window, tint, 0.2));
    p.setColor(QPalette::WindowText, base.color(QPalette::WindowText));
    setPalette(p);
    mRecoloring = false;
}
