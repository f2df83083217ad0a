#pragma once

#include "logic/QuickLook.h"

#include <QDateTime>
#include <QIcon>
#include <QImage>
#include <QWidget>

#include <memory>

class PreviewDelivery;
class PreviewImageView;
class QLabel;
class QPlainTextEdit;
class QStackedWidget;

// A look at a cached item without restoring it: images through QImageReader, the first page of
// a PDF where Qt PDF is built in, the start of a text file; anything else by its icon, name,
// kind, size and date. Files are read on a thread of their own, so a large one never blocks the
// window.
// A tool window over the main window; space or Escape closes it.
class PreviewPanel : public QWidget, public PreviewPanelControl
{
    Q_OBJECT
public:
    // Text previews stop after this many bytes.
    static constexpr qint64 kTextLimit = 256 * 1024;
    // Images are decoded down to at most this many pixels on their longer side.
    static constexpr int kImageLimit = 4096;

    enum class Kind { Nothing, Image, Pdf, Text, Info };

    // What a file gives to look at; made off the GUI thread.
    struct Preview
    {
        Kind kind = Kind::Nothing;
        QByteArray path;
        QString name;
        QString kindText; // the MIME type's description
        QString iconName;
        bool exists = false;
        bool isFolder = false;
        qint64 size = -1;
        QDateTime modified; // UTC
        QImage image;
        QString text;
        bool textTruncated = false;
    };
    static Preview load(const QByteArray &path);
    static bool hasPdfSupport();

    explicit PreviewPanel(QWidget *parent = nullptr);
    ~PreviewPanel() override;

    bool panelIsVisible() const override { return isVisible(); }
    void orderOut() override;
    void setDataSource(PreviewDataSource *source) override { mDataSource = source; }
    void reloadData() override;
    void makeKeyAndOrderFront() override;

    // What the panel shows now (tests).
    Kind shownKind() const { return mShown.kind; }
    const Preview &shown() const { return mShown; }
    QString infoLine() const;

signals:
    // The user closed the panel (the controller gives it up).
    void panelClosed();
    // An item finished loading and is on screen.
    void loaded();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    friend class PreviewDelivery;
    void display(quint64 generation, const Preview &preview);

    std::shared_ptr<PreviewDelivery> mDelivery;
    PreviewDataSource *mDataSource = nullptr;
    quint64 mGeneration = 0;
    Preview mShown;
    QStackedWidget *mPages = nullptr;
    PreviewImageView *mImage = nullptr;
    QPlainTextEdit *mText = nullptr;
    QLabel *mIcon = nullptr;
    QLabel *mDetails = nullptr;
    QLabel *mInfo = nullptr;
};
