#include "Program.h"

#include "kit/Media.h"
#include "kit/TestMain.h"

#include <QtCore/QMap>
#include <QtCore/QRegularExpression>
#include <QtTest/QtTest>

/// The options of kova-play are listed in several places. They agree with the parser's own list.
class TestOptions : public ProgramTest
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void completionsKnowEveryOption();
    void completionsKnowWhichOptionsTakeAValue();
    void manualPageKnowsEveryOption();
    void synopsisOfManualPageKnowsEveryOption();
    void wrapperKnowsWhichOptionsTakeAValue();

private:
    /// The options of --help: "--loop", and with a value "--device=".
    QStringList options;
    QMap<QString, QString> letters; ///< "d" of "device"
    QStringList optionsWithValue() const { return options.filter("="); }
};

/// A file of the source tree.
static QString source(const QString& path)
{
    const QByteArray text = media::readFile(QStringLiteral(KOVA_SOURCE "/") + path);
    return QString::fromUtf8(text);
}

static QStringList sorted(QStringList list)
{
    list.removeDuplicates();
    list.sort();
    return list;
}

/// All options in a text: "--NAME", and with a value "--NAME=".
/// @param pattern  captures the name and, if there is one, the value
static QStringList found(const QString& text, const QString& pattern)
{
    QStringList list;
    auto match = QRegularExpression(pattern, QRegularExpression::MultilineOption).globalMatch(text);
    while (match.hasNext()) {
        const QRegularExpressionMatch next = match.next();
        list << "--" + next.captured(1) + (next.captured(2).isEmpty() ? "" : "=");
    }
    return sorted(list);
}

void TestOptions::initTestCase()
{
    Program program({"--help"});
    QCOMPARE(program.finish(), 0);
    options = found(QString::fromUtf8(program.out), "^ +(?:-\\w, )?--([a-z-]+)( <\\w+>)?");
    QVERIFY(options.contains("--device=") && options.contains("--loop"));
    const QRegularExpression both("^ +-(\\w), --([a-z-]+)", QRegularExpression::MultilineOption);
    auto match = both.globalMatch(QString::fromUtf8(program.out));
    while (match.hasNext()) {
        const QRegularExpressionMatch next = match.next();
        letters.insert(next.captured(2), next.captured(1));
    }
    QCOMPARE(letters.value("device"), QString("d"));
}

void TestOptions::completionsKnowEveryOption()
{
    const QString script = source("src/tools/kova-play/completions/kova-play");
    const QString words = script.section("compgen -W '--", 1).section('\'', 0, 0);
    QStringList known = ("--" + words).split(QRegularExpression("\\s+"));
    QCOMPARE(known.removeAll("--loop=new"), 1); // a second form of --loop
    QCOMPARE(sorted(known), options);
}

void TestOptions::completionsKnowWhichOptionsTakeAValue()
{
    const QString script = source("src/tools/kova-play/completions/kova-play");
    const QString cases = script.section("case $prev in", 1).section("esac", 0, 0);
    QStringList known = found(cases, "--([a-z-]+)");
    for (QString& option : known) {
        option += '=';
    }
    QCOMPARE(known, optionsWithValue());
}

void TestOptions::manualPageKnowsEveryOption()
{
    const QString page = source("src/tools/kova-play/kova-play.1").section(".Sh DESCRIPTION", 1);
    QCOMPARE(found(page, "^\\.It .*Fl -([a-z-]+)(?: Ns = Ns)?( Ar \\w+)?(?: Ns Op Cm =new)?$"),
             options);
}

void TestOptions::synopsisOfManualPageKnowsEveryOption()
{
    const QString page = source("src/tools/kova-play/kova-play.1");
    const QString synopsis = page.section(".Sh SYNOPSIS", 1).section(".Sh DESCRIPTION", 0, 0);
    for (const QString& option : options) {
        const QString name = option.mid(2).remove('=');
        // Options that have a letter may be there by it. -h and --version are for everywhere.
        const QString letter = letters.value(name, "-" + name);
        const QRegularExpression shown(QString("Fl (-%1|\\w*%2\\w*)(?![\\w-])").arg(name, letter));
        QVERIFY2(name == "help" || name == "version" || shown.match(synopsis).hasMatch(),
                 qPrintable(option));
    }
}

void TestOptions::wrapperKnowsWhichOptionsTakeAValue()
{
    const QString script = source("scripts/play");
    const QString cases = script.section("read_arguments()", 1).section("esac", 0, 0);
    QStringList known;
    for (const QString& line : cases.split('\n').filter("expects_value=yes")) {
        known += found(line.section(')', 0, 0), "(?:^|[ |])--([a-z-]+)(?![a-z=-])");
    }
    for (QString& option : known) {
        option += '=';
    }
    QCOMPARE(sorted(known), optionsWithValue());
}

KOVA_TEST(TestOptions)
#include "tst_options.moc"
