#include "kit/GstLeaks.h"
#include "kit/Source.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <QtTest/QtTest>

/// Playback in a process without the /proc file system, as in a sandbox.
class TestWithoutProc : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { QCOMPARE(leakedGstObjects(), QString()); }

    void itemIsPlayed_data();
    void itemIsPlayed();
    void itemIsPlayedWithoutProc();
};

void TestWithoutProc::itemIsPlayed_data()
{
    QTest::addColumn<const Source*>("source");
    for (const Source* source : Source::all()) {
        QTest::newRow(source->name) << source;
    }
}

void TestWithoutProc::itemIsPlayed()
{
    QFETCH(const Source*, source);
    SourcePlayer player(*source, Item(media::noise(4800)), QStringLiteral("null"));
    QVERIFY(player.start());
    QCOMPARE(player.finish(), QStringList{"ended token"});
    QVERIFY(!player.writer || player.writer->waitForFinished());
}

void TestWithoutProc::itemIsPlayedWithoutProc()
{
    QCOMPARE(TestProcess::runWithoutProc({"itemIsPlayed"}), QString());
}

KOVA_TEST(TestWithoutProc)
#include "tst_withoutproc.moc"
