#include "logic/LoginItems.h"

#include "common/Applications.h"
#include "common/Locations.h"
#include "common/Log.h"
#include "common/NotificationBus.h"
#include "common/Notifications.h"
#include "common/Settings.h"
#include "common/SettingsKeys.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSaveFile>

#include <algorithm>
#include <dirent.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char kEntryName[] = "salvora3-menu";
constexpr char kSuffix[] = ".desktop";
// An autostart entry is a few hundred bytes; anything far larger is not one.
constexpr qint64 kMaxEntrySize = 1 << 20;

// The value-level escapes of desktop entries: \s \n \t \r \\.
QByteArray unescapeValue(const QByteArray &value)
{
    QByteArray out;
    for (qsizetype i = 0; i < value.size(); ++i) {
        const char c = value[i];
        if (c != '\\' || i + 1 == value.size()) {
            out += c;
            continue;
        }
        switch (value[++i]) {
        case 's':
            out += ' ';
            break;
        case 'n':
            out += '\n';
            break;
        case 't':
            out += '\t';
            break;
        case 'r':
            out += '\r';
            break;
        case '\\':
            out += '\\';
            break;
        default:
            out += '\\';
            out += value[i];
            break;
        }
    }
    return out;
}

QByteArray escapeValue(const QByteArray &value)
{
    QByteArray out;
    for (const char c : value) {
        switch (c) {
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\r':
            out += "\\r";
            break;
        default:
            out += c;
            break;
        }
    }
    return out;
}

// The first word of an Exec= command line (after value unescaping), or nullopt when a quote
// is left open.
std::optional<QByteArray> firstWord(const QByteArray &command)
{
    QByteArray word;
    qsizetype i = 0;
    while (i < command.size() && (command[i] == ' ' || command[i] == '\t'))
        ++i;
    if (i < command.size() && command[i] == '"') {
        for (++i; i < command.size(); ++i) {
            const char c = command[i];
            if (c == '"') break;
            if (c == '\\' && i + 1 < command.size())
                word += command[++i];
            else
                word += c;
        }
        if (i >= command.size()) return std::nullopt;
    } else {
        while (i < command.size() && command[i] != ' ' && command[i] != '\t')
            word += command[i++];
    }
    // Field codes: only "%%" can stand in a program path.
    word.replace("%%", "%");
    return word;
}

QByteArray lastName(const QByteArray &path)
{
    return path.mid(path.lastIndexOf('/') + 1);
}

} // namespace

AutostartList::AutostartList(QByteArray folder) : mFolder(std::move(folder)) {}

QByteArray AutostartList::defaultFolder()
{
    QByteArray base = qgetenv("XDG_CONFIG_HOME");
    if (!base.startsWith('/')) base = CommonUtils::homeFolder() + "/.config";
    return base + "/autostart";
}

bool AutostartList::open(bool create)
{
    struct stat status = {};
    if (::stat(mFolder.constData(), &status) == 0) return S_ISDIR(status.st_mode);
    return create && QDir().mkpath(QFile::decodeName(mFolder));
}

QList<AutostartList::Item> AutostartList::snapshot() const
{
    QList<QByteArray> names;
    if (DIR *dir = ::opendir(mFolder.constData())) {
        while (const dirent *e = ::readdir(dir)) {
            const QByteArray name(e->d_name);
            if (name.endsWith(kSuffix) && name.size() > qsizetype(sizeof kSuffix - 1))
                names.append(name);
        }
        ::closedir(dir);
    }
    std::sort(names.begin(), names.end());
    QList<Item> items;
    for (const QByteArray &name : names) {
        QFile file(QFile::decodeName(mFolder + '/' + name));
        Item item{name, {}};
        if (file.open(QIODevice::ReadOnly) && file.size() <= kMaxEntrySize)
            item.program = programOf(file.readAll());
        items.append(item);
    }
    return items;
}

bool AutostartList::remove(const Item &item)
{
    return ::unlink((mFolder + '/' + item.file).constData()) == 0;
}

bool AutostartList::append(const QByteArray &program)
{
    QByteArray name = QByteArray(kEntryName) + kSuffix;
    for (int n = 2; QFileInfo::exists(QFile::decodeName(mFolder + '/' + name)); ++n) {
        if (n > 99) return false;
        name = kEntryName + ('-' + QByteArray::number(n)) + kSuffix;
    }
    QSaveFile file(QFile::decodeName(mFolder + '/' + name));
    if (!file.open(QIODevice::WriteOnly)) return false;
    file.write("[Desktop Entry]\n"
               "Type=Application\n"
               "Name=Salvora 3 Menu\n"
               "Exec=" +
               execValueFor(program) +
               "\n"
               "Icon=salvora3\n"
               "Terminal=false\n"
               "X-GNOME-Autostart-enabled=true\n");
    return file.commit();
}

QByteArray AutostartList::programOf(const QByteArray &entry)
{
    bool inMainGroup = false;
    std::optional<QByteArray> exec;
    bool hidden = false;
    for (const QByteArray &raw : entry.split('\n')) {
        const QByteArray line = raw.endsWith('\r') ? raw.chopped(1) : raw;
        if (line.startsWith('[')) {
            inMainGroup = line.trimmed() == "[Desktop Entry]";
            continue;
        }
        const qsizetype eq = line.indexOf('=');
        if (!inMainGroup || line.startsWith('#') || eq < 0) continue;
        const QByteArray key = line.left(eq).trimmed();
        // Leading blanks of a value are not part of it; trailing ones are.
        QByteArray value = line.mid(eq + 1);
        while (!value.isEmpty() && (value.front() == ' ' || value.front() == '\t'))
            value.remove(0, 1);
        if (key == "Exec" && !exec)
            exec = unescapeValue(value);
        else if (key == "Hidden")
            hidden = value.trimmed() == "true";
    }
    if (hidden || !exec) return {};
    const std::optional<QByteArray> program = firstWord(*exec);
    if (!program || !program->startsWith('/')) return {};
    return *program;
}

QByteArray AutostartList::execValueFor(const QByteArray &program)
{
    static const QByteArray reserved = " \t\n\r\"'\\><~|&;$*?#()`";
    QByteArray command;
    if (std::any_of(program.begin(), program.end(), [](char c) { return reserved.contains(c); })) {
        command += '"';
        for (const char c : program) {
            if (c == '"' || c == '`' || c == '$' || c == '\\') command += '\\';
            command += c;
        }
        command += '"';
    } else {
        command = program;
    }
    command.replace("%", "%%");
    return escapeValue(command);
}

namespace LoginItems {

Companion defaultCompanion()
{
    return {CommonUtils::menuAppPath(), AutostartList::defaultFolder(),
            CommonUtils::isApplicationLaunchedWithPath,
            [](const QString &path) { return QProcess::startDetached(path, {}); },
            [] {
                NotificationBus::post(QLatin1String(Notifications::Salvora3MenuNotification),
                                      QLatin1String(Notifications::Salvora3MenuMustQuit));
            }};
}

void installSalvoraMenu(const Companion &companion)
{
    const bool on = Settings::integer(SettingsKeys::PrefsLaunchMenu).value_or(0) != 0;
    const QByteArray menu = QFile::encodeName(companion.menuPath);
    AutostartList list(companion.autostartFolder);
    // Without a companion path there is nothing to compare with or to add.
    if (!menu.isEmpty() && list.open(on)) {
        bool found = false;
        for (const AutostartList::Item &item : list.snapshot()) {
            if (item.program.isEmpty()) continue;
            if (item.program == menu) {
                if (!on && list.remove(item))
                    CommonUtils::addToLogFile(
                        QStringLiteral("Salvora 3 Menu removed from login list."));
                found = true;
                break;
            }
            if (on && lastName(item.program) == lastName(menu) && list.remove(item))
                CommonUtils::addToLogFile(
                    QStringLiteral("Other occurence of Salvora 3 Menu removed from login list."));
        }
        if (!found && on && list.append(menu))
            CommonUtils::addToLogFile(QStringLiteral("Salvora 3 Menu added in login list."));
    }
    if (on) {
        if (!companion.menuPath.isEmpty() && QFileInfo::exists(companion.menuPath) &&
            companion.isLaunched(companion.menuPath) == 0)
            companion.launch(companion.menuPath);
    } else {
        companion.tellToQuit();
    }
}

} // namespace LoginItems
