// A small window with the kinds of widgets Salvora 3 uses (toolbar with theme icons, pop-up,
// tables, search field, status lines), for testing scripts/screenshots.sh without the real window.

#include <QApplication>
#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMainWindow>
#include <QSplitter>
#include <QStatusBar>
#include <QTableWidget>
#include <QToolBar>
#include <QVBoxLayout>

namespace {

QTableWidget *table(const QStringList &headers, const QList<QStringList> &rows)
{
    auto *t = new QTableWidget(int(rows.size()), int(headers.size()));
    t->setHorizontalHeaderLabels(headers);
    for (int r = 0; r < rows.size(); ++r)
        for (int c = 0; c < headers.size(); ++c)
            t->setItem(r, c, new QTableWidgetItem(rows[r].value(c)));
    t->horizontalHeader()->setStretchLastSection(true);
    t->verticalHeader()->hide();
    t->selectRow(0);
    return t;
}

} // namespace

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QMainWindow window;
    window.setWindowTitle(QStringLiteral("Screenshot demo"));

    QToolBar *tools = window.addToolBar(QStringLiteral("tools"));
    tools->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    tools->addAction(QIcon::fromTheme(QStringLiteral("preferences-system")),
                     QStringLiteral("Settings"));
    tools->addAction(QIcon::fromTheme(QStringLiteral("media-playback-start")),
                     QStringLiteral("Start"));
    tools->addAction(QIcon::fromTheme(QStringLiteral("edit-copy")), QStringLiteral("Copy"));
    tools->addAction(QIcon::fromTheme(QStringLiteral("edit-delete")), QStringLiteral("Remove"));
    tools->addAction(QIcon::fromTheme(QStringLiteral("help-browser")), QStringLiteral("Help"));

    auto *central = new QWidget;
    auto *layout = new QVBoxLayout(central);
    auto *volumes = new QComboBox;
    volumes->addItems(
        {QStringLiteral("Debian GNU/Linux 12 (current user)"), QStringLiteral("USB stick")});
    layout->addWidget(volumes);
    auto *split = new QSplitter;
    split->addWidget(table({QStringLiteral("Day"), QStringLiteral("Size")},
                           {{QStringLiteral("Today"), QStringLiteral("12 MB")},
                            {QStringLiteral("Yesterday"), QStringLiteral("3.4 MB")}}));
    auto *right = new QWidget;
    auto *rightLayout = new QVBoxLayout(right);
    auto *search = new QLineEdit;
    search->setPlaceholderText(QStringLiteral("Search"));
    rightLayout->addWidget(search);
    rightLayout->addWidget(table(
        {QStringLiteral("Name"), QStringLiteral("Size"), QStringLiteral("Deleted")},
        {{QStringLiteral("Annual report.odt"), QStringLiteral("48 KB"), QStringLiteral("16:42")},
         {QStringLiteral("Holiday.jpg"), QStringLiteral("2.1 MB"), QStringLiteral("09:05")}}));
    split->addWidget(right);
    layout->addWidget(split);
    layout->addWidget(new QLabel(QStringLiteral("Protection is on - 1 protected volume")));
    window.setCentralWidget(central);
    window.statusBar()->showMessage(QStringLiteral("2 days of activity"));
    window.resize(900, 560);
    window.show();
    return app.exec();
}
