#include "TestEnv.h"

#include "common/SizeText.h"
#include "common/Texts.h"

#include <QCoreApplication>
#include <QDir>
#include <QLocale>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>
#include <QTranslator>
#include <QXmlStreamReader>

namespace {

struct Message
{
    QString source, translation;
    bool finished = true;
};

// A text with a count has one form per plural of the language: each must be filled in, and the
// first one stands for all.
QMap<QString, Message> readTs(const QString &path, QString *error)
{
    QMap<QString, Message> messages;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) *error = path + QLatin1String(": cannot open");
    QXmlStreamReader xml(&file);
    QString id;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement) continue;
        Message &m = messages[id];
        if (xml.name() == QLatin1String("message")) {
            id = xml.attributes().value(QLatin1String("id")).toString();
        } else if (xml.name() == QLatin1String("source")) {
            m.source = xml.readElementText();
        } else if (xml.name() == QLatin1String("translation")) {
            m.finished = xml.attributes().value(QLatin1String("type")).isEmpty();
            bool numerus = false;
            while (xml.readNext() != QXmlStreamReader::EndElement && !xml.atEnd()) {
                if (xml.isCharacters() && !numerus) {
                    m.translation += xml.text();
                } else if (xml.isStartElement()) { // a numerusform
                    const QString form = xml.readElementText();
                    m.finished = m.finished && !form.isEmpty();
                    if (!std::exchange(numerus, true)) m.translation = form;
                }
            }
        }
    }
    messages.remove(QString());
    if (xml.hasError()) *error = path + QLatin1String(": ") + xml.errorString();
    return messages;
}

// The placeholders a text fills: "%1 of %2" gives {1, 2}.
QList<int> placeholders(const QString &text)
{
    QList<int> found;
    for (const auto &m : QRegularExpression(QStringLiteral("%(\\d)")).globalMatch(text))
        found.append(m.captured(1).toInt());
    std::sort(found.begin(), found.end());
    return found;
}

} // namespace

class TstTranslations : public QObject
{
    Q_OBJECT
    const QString mDir = QStringLiteral(SALVORA_TRANSLATIONS_DIR);

private slots:
    void cleanup()
    {
        // Texts::install's translators are children of the application: deleting uninstalls.
        qDeleteAll(QCoreApplication::instance()->findChildren<QTranslator *>());
        QLocale::setDefault(QLocale::c());
    }

    // Every language but English must translate every id of the English file, with the same
    // placeholders. After new texts are added, scripts/update-translations.sh adds their ids to
    // every language as unfinished, and this lists what is left to translate.
    void everyLanguageCoversEnglish()
    {
        QString error;
        const auto english = readTs(mDir + QLatin1String("/salvora3_en.ts"), &error);
        QVERIFY2(error.isEmpty(), qPrintable(error));
        QVERIFY(english.size() > 10);
        const QStringList files = QDir(mDir).entryList({QStringLiteral("salvora3_*.ts")});
        QVERIFY(files.contains(QLatin1String("salvora3_fr.ts")));
        QStringList problems;
        for (const QString &name : files) {
            if (name == QLatin1String("salvora3_en.ts")) continue;
            const auto other = readTs(mDir + QLatin1Char('/') + name, &error);
            QVERIFY2(error.isEmpty(), qPrintable(error));
            for (auto it = english.begin(); it != english.end(); ++it) {
                const Message found = other.value(it.key(), Message{{}, {}, false});
                if (found.translation.isEmpty() || !found.finished)
                    problems << QStringLiteral("%1: %2 is not translated (English: \"%3\")")
                                    .arg(name, it.key(), it->source);
                else if (placeholders(found.translation) != placeholders(it->translation))
                    problems << QStringLiteral("%1: %2 has other placeholders than the English")
                                    .arg(name, it.key());
            }
            for (const QString &id : other.keys())
                if (!english.contains(id))
                    problems << QStringLiteral("%1: %2 is not an id of the English file (run "
                                               "scripts/update-translations.sh)")
                                    .arg(name, id);
        }
        QVERIFY2(problems.isEmpty(), qPrintable(problems.join(QLatin1Char('\n'))));
    }

    // No German file: English, not bare ids (the other suites check English under C).
    void localePicksLanguage_data()
    {
        QTest::addColumn<QLocale>("locale");
        QTest::addColumn<QString>("menuText");
        QTest::addColumn<QString>("kiloUnit");
        const QString french = QStringLiteral("Activer la protection");
        const QString english = QStringLiteral("Turn Protection On");
        QTest::newRow("fr_FR") << QLocale(QLocale::French, QLocale::France) << french << "Ko";
        QTest::newRow("de_DE") << QLocale(QLocale::German, QLocale::Germany) << english << "KB";
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
    }

    // A program started with a French environment speaks French (English: the other suites).
    void programFollowsEnvironment()
    {
        TestEnv env;
        QProcess salvora;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove(QStringLiteral("LANGUAGE"));
        environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("fr_FR.UTF-8"));
        salvora.setProcessEnvironment(environment);
        salvora.start(qEnvironmentVariable("SALVORA_BIN_DIR") + QLatin1String("/salvora"),
                      {QStringLiteral("days")});
        QVERIFY(salvora.waitForFinished(30000));
        QCOMPARE(salvora.exitCode(), 0);
        QVERIFY(QString::fromUtf8(salvora.readAllStandardOutput()).contains(u"jour d’activité"));
    }
};

QTEST_GUILESS_MAIN(TstTranslations)
#include "tst_translations.moc"
