#include "kit/Latin1Locale.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <tools/kova-play/Files.h>
#include <tools/kova-play/Text.h>

#include <QtTest/QtTest>

#include <clocale>

/// What kova-play does with texts before it shows them.
class TestText : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();

    void lineHasNoBreaks();
    void nameThatIsNoTextKeepsItsBytes_data();
    void nameThatIsNoTextKeepsItsBytes();
    void wideAndCombiningCharactersAreCounted();
    void longLineIsCut();
    void quotesBecomeThoseOfTheLocale();
    void clockHasHoursWhenNeeded_data();
    void clockHasHoursWhenNeeded();
};

void TestText::initTestCase()
{
    QVERIFY(std::setlocale(LC_CTYPE, "C.UTF-8"));
}

void TestText::cleanupTestCase()
{
    QVERIFY(std::setlocale(LC_CTYPE, "C"));
}

void TestText::lineHasNoBreaks()
{
    QCOMPARE(text::oneLine(QString::fromUtf8("a\nb\u2028c\u2029d\033e\u00a0f")),
             QString::fromUtf8("a b c d e\u00a0f"));
}

void TestText::nameThatIsNoTextKeepsItsBytes_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("shown");
    QTest::newRow("text") << QByteArray("Gr\303\274n.wav") << QByteArray("Gr\303\274n.wav");
    QTest::newRow("beyond 16 bits")
        << QByteArray("\360\237\216\265") << QByteArray("\360\237\216\265");
    QTest::newRow("Latin-1") << QByteArray("Gr\374n.wav") << QByteArray("Gr?n.wav");
    QTest::newRow("cut off") << QByteArray("a\303") << QByteArray("a?");
    QTest::newRow("bytes alone") << QByteArray("\200\377") << QByteArray("??");
}

void TestText::nameThatIsNoTextKeepsItsBytes()
{
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, shown);
    const QString kept = files::decoded(name);
    QCOMPARE(files::encoded(kept), name);
    QCOMPARE(text::oneLine(kept).toUtf8(), shown);
    QCOMPARE(files::encoded("b" + kept + kept), "b" + name + name);
}

void TestText::wideAndCombiningCharactersAreCounted()
{
    QCOMPARE(text::columns(QStringLiteral("abc")), 3);
    QCOMPARE(text::columns(QString::fromUtf8("\u6f22\u5b57")), 4);
    QCOMPARE(text::columns(QString::fromUtf8("e\u0301")), 1);
    // A control character has no width that the locale knows.
    QCOMPARE(text::columns(QStringLiteral("\x7f")), 1);
    // Nor has one that is no character.
    QCOMPARE(text::columns(QString(QChar(0xffff))), 0);
}

void TestText::longLineIsCut()
{
    QCOMPARE(text::fitted(QStringLiteral("abcdef"), 6), QStringLiteral("abcdef"));
    QCOMPARE(text::fitted(QStringLiteral("abcdef"), 5), QStringLiteral("ab..."));
    QCOMPARE(text::fitted(QStringLiteral("abcdef"), 3), QStringLiteral("abc"));
    QCOMPARE(text::fitted(QStringLiteral("abcdef"), 0), QString());
    // Half a character is none.
    QCOMPARE(text::fitted(QString::fromUtf8("\u6f22\u5b57\u6f22"), 5),
             QString::fromUtf8("\u6f22..."));
    QCOMPARE(text::fitted(QString::fromUtf8("\u6f22\u5b57\u6f22"), 3), QString::fromUtf8("\u6f22"));
}

void TestText::quotesBecomeThoseOfTheLocale()
{
    const QString quotes = QString::fromUtf8("\u201ca\u201d \u2018b\u2019 \u2013 \u2026");
    QByteArray latin1;
    {
        const Latin1Locale locale;
        latin1 = text::encoded(quotes);
    }
    QVERIFY(std::setlocale(LC_CTYPE, "C"));
    const QByteArray ascii = text::encoded(quotes + QString::fromUtf8(" \u00fc\u6f22"));
    QVERIFY(std::setlocale(LC_CTYPE, "C.UTF-8"));
    QCOMPARE(latin1, QByteArray("\"a\" 'b' - ..."));
    QCOMPARE(ascii, QByteArray("\"a\" 'b' - ... ??"));
    QCOMPARE(text::encoded(quotes), quotes.toUtf8());
}

void TestText::clockHasHoursWhenNeeded_data()
{
    QTest::addColumn<qint64>("milliseconds");
    QTest::addColumn<QString>("shown");
    QTest::newRow("nothing") << qint64(0) << "0:00";
    QTest::newRow("almost a minute") << qint64(59999) << "0:59";
    QTest::newRow("almost an hour") << qint64(3599999) << "59:59";
    QTest::newRow("an hour") << qint64(3600000) << "1:00:00";
    QTest::newRow("more") << qint64(45296000) << "12:34:56";
}

void TestText::clockHasHoursWhenNeeded()
{
    QFETCH(qint64, milliseconds);
    QTEST(text::clock(milliseconds), "shown");
}

KOVA_TEST(TestText)
#include "tst_text.moc"
