#include "TestEnv.h"

#include "common/SizeText.h"
#include "common/Texts.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLocale>
#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTest>
#include <QTranslator>
#include <QXmlStreamReader>

namespace {

struct Message
{
    QString source;
    QString translation;
    QString type; // "unfinished", "vanished", "obsolete" or empty
};

QMap<QString, Message> readTs(const QString &path, QString *error)
{
    QMap<QString, Message> messages;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = path + QLatin1String(": cannot open");
        return messages;
    }
    QXmlStreamReader xml(&file);
    QString id;
    Message current;
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement()) {
            if (xml.name() == QLatin1String("message")) {
                id = xml.attributes().value(QLatin1String("id")).toString();
                current = Message();
            } else if (xml.name() == QLatin1String("source")) {
                current.source = xml.readElementText();
            } else if (xml.name() == QLatin1String("translation")) {
                current.type = xml.attributes().value(QLatin1String("type")).toString();
                // A text with a count has one form per plural of the language: each must be
                // filled in, and the first one stands for all.
                QString text, firstForm;
                bool numerus = false;
                while (!xml.atEnd() && !(xml.readNext() == QXmlStreamReader::EndElement &&
                                         xml.name() == QLatin1String("translation"))) {
                    if (xml.isCharacters()) {
                        text += xml.text();
                    } else if (xml.isStartElement() && xml.name() == QLatin1String("numerusform")) {
                        const QString form = xml.readElementText();
                        if (form.isEmpty()) current.type = QStringLiteral("unfinished");
                        if (!numerus) firstForm = form;
                        numerus = true;
                    }
                }
                current.translation = numerus ? firstForm : text;
            }
        } else if (xml.isEndElement() && xml.name() == QLatin1String("message")) {
            messages.insert(id, current);
        }
    }
    if (xml.hasError()) *error = path + QLatin1String(": ") + xml.errorString();
    return messages;
}

// The placeholders a text fills: "%1 of %2" gives {1, 2}.
QList<int> placeholders(const QString &text)
{
    static const QRegularExpression re(QStringLiteral("%(\\d)"));
    QList<int> found;
    for (const QRegularExpressionMatch &m : re.globalMatch(text))
        found.append(m.captured(1).toInt());
    std::sort(found.begin(), found.end());
    return found;
}

// Texts::install adds its translators as children of the application; deleting them uninstalls
// them, so each case starts from a bare application.
void uninstallTranslators()
{
    qDeleteAll(QCoreApplication::instance()->findChildren<QTranslator *>());
}

} // namespace

class TstTranslations : public QObject
{
    Q_OBJECT
    const QString mDir = QStringLiteral(SALVORA_TRANSLATIONS_DIR);

private slots:
    void cleanup()
    {
        uninstallTranslators();
        QLocale::setDefault(QLocale::c());
    }

    // Every language but English must translate every id of the English file, with the same
    // placeholders. After new texts are added, scripts/update-translations.sh adds their ids to
    // every language as unfinished, and this lists what is left to translate.
    void everyLanguageCoversEnglish()
    {
        QString error;
        const QMap<QString, Message> english =
            readTs(mDir + QLatin1String("/salvora3_en.ts"), &error);
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QVERIFY(english.size() > 10);

        const QStringList files =
            QDir(mDir).entryList({QStringLiteral("salvora3_*.ts")}, QDir::Files);
        QVERIFY(files.contains(QLatin1String("salvora3_fr.ts")));
        QStringList problems;
        for (const QString &name : files) {
            if (name == QLatin1String("salvora3_en.ts")) continue;
            const QMap<QString, Message> other = readTs(mDir + QLatin1Char('/') + name, &error);
            QVERIFY2(error.isEmpty(), qPrintable(error));
            for (auto it = english.begin(); it != english.end(); ++it) {
                const auto found = other.constFind(it.key());
                if (found == other.cend() || found->translation.isEmpty() ||
                    !found->type.isEmpty()) {
                    problems << QStringLiteral("%1: %2 is not translated (English: \"%3\")")
                                    .arg(name, it.key(), it->source);
                } else if (placeholders(found->translation) != placeholders(it->translation)) {
                    problems << QStringLiteral(
                                    "%1: %2 has other placeholders than the English \"%3\"")
                                    .arg(name, it.key(), it->translation);
                }
            }
            for (auto it = other.begin(); it != other.end(); ++it) {
                if (!english.contains(it.key()))
                    problems << QStringLiteral("%1: %2 is not an id of the English file (run "
                                               "scripts/update-translations.sh)")
                                    .arg(name, it.key());
            }
        }
        for (const QString &p : std::as_const(problems))
            qWarning().noquote() << p;
        QVERIFY2(problems.isEmpty(),
                 qPrintable(
                     QStringLiteral("%1 translation problems, listed above").arg(problems.size())));
    }

    void localePicksLanguage_data()
    {
        QTest::addColumn<QLocale>("locale");
        QTest::addColumn<QString>("menuText");
        QTest::addColumn<QString>("kiloUnit");
        QTest::newRow("fr_FR") << QLocale(QLocale::French, QLocale::France)
                               << "Activer la protection"
                               << "Ko";
        QTest::newRow("fr_CA") << QLocale(QLocale::French, QLocale::Canada)
                               << "Activer la protection"
                               << "Ko";
        // No German file: English, not bare ids.
        QTest::newRow("de_DE") << QLocale(QLocale::German, QLocale::Germany) << "Turn Protection On"
                               << "KB";
        // Also what the other suites rely on: English texts, not bare ids, under the C locale.
        QTest::newRow("C") << QLocale::c() << "Turn Protection On"
                           << "KB";
    }
    void localePicksLanguage()
    {
        QFETCH(QLocale, locale);
        QFETCH(QString, menuText);
        QFETCH(QString, kiloUnit);
        QLocale::setDefault(locale);
        Texts::install(*QCoreApplication::instance());
        QCOMPARE(qtTrId("MenuProtectionOn"), menuText);
        QCOMPARE(CommonUtils::getSizeStr(1500), QStringLiteral("1.5 ") + kiloUnit);
        QCOMPARE(Texts::appName(), QStringLiteral("Salvora 3"));
    }

    // A program started with a French environment speaks French, and English without one.
    void programFollowsEnvironment_data()
    {
        QTest::addColumn<QString>("lcAll");
        QTest::addColumn<QString>("expected");
        QTest::newRow("fr_FR.UTF-8") << "fr_FR.UTF-8"
                                     << "jour d’activité";
        QTest::newRow("C.UTF-8") << "C.UTF-8"
                                 << "day of activity";
    }
    void programFollowsEnvironment()
    {
        QFETCH(QString, lcAll);
        QFETCH(QString, expected);
        const QString bin = qEnvironmentVariable("SALVORA_BIN_DIR");
        if (bin.isEmpty()) QSKIP("SALVORA_BIN_DIR is not set (run it through ctest)");
        TestEnv env;
        QProcess salvora;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove(QStringLiteral("LANGUAGE"));
        environment.insert(QStringLiteral("LC_ALL"), lcAll);
        salvora.setProcessEnvironment(environment);
        salvora.start(qEnvironmentVariable("SALVORA_BIN_DIR") + QLatin1String("/salvora"),
                      {QStringLiteral("days")});
        QVERIFY(salvora.waitForFinished(30000));
        QCOMPARE(salvora.exitCode(), 0);
        const QString out = QString::fromUtf8(salvora.readAllStandardOutput());
        QVERIFY2(out.contains(expected), qPrintable(out));
    }
};

QTEST_GUILESS_MAIN(TstTranslations)
#include "tst_translations.moc"
