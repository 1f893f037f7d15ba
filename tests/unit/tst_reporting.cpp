#include "unit/TestEngine.h"

#include "kit/GstLeaks.h"
#include "kit/LogCapture.h"
#include "kit/Outcomes.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <QtCore/QThread>
#include <QtTest/QtTest>

#include <memory>

/// How an outcome becomes exactly one signal.
class TestReporting : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup();

    void reportBecomesTheSignalThatFits_data();
    void reportBecomesTheSignalThatFits();
    void internalSignalCarriesTheReport();
    void reportIsLogged();
    void laterReportsAreLoggedAndDropped();
    void reportsQueuedBackToBackGiveTheFirstOnesSignal();
    void stopWinsWhateverItsTextSays();
    void endReportedIsSetBeforeTheSignal();
    void reportFromAnotherThreadArrivesOnTheEnginesThread();
    void destructionBeforeDeliverySilencesTheReport();
    void clientMayCallAnythingInItsSlot_data();
    void clientMayCallAnythingInItsSlot();
    void clientMayDeleteItsPlayerInItsSlot_data();
    void clientMayDeleteItsPlayerInItsSlot();
};

void TestReporting::cleanup()
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QCOMPARE(leakedGstObjects(), QString());
}

void TestReporting::reportBecomesTheSignalThatFits_data()
{
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("outcome");
    QTest::newRow("null text") << QString() << "ended T";
    QTest::newRow("empty text") << ""
                                << "ended T";
    QTest::newRow("text") << "reason"
                          << "error T: reason";
    QTest::newRow("blank") << " "
                           << "error T:  ";
}

void TestReporting::reportBecomesTheSignalThatFits()
{
    QFETCH(QString, error);
    QFETCH(QString, outcome);
    TestPlayer player;
    const Outcomes outcomes(&player);
    player.engine->reportPlaybackEnded(error);
    QCOMPARE(outcomes.all, QStringList());
    QCoreApplication::processEvents();
    QCOMPARE(outcomes.all, QStringList{outcome});
}

void TestReporting::internalSignalCarriesTheReport()
{
    TestPlayer player;
    const QSignalSpy reports(player.engine, &SimplePlayerImpl::sendPlaybackEnded);
    player.engine->reportPlaybackEnded(QStringLiteral("reason"));
    player.engine->reportPlaybackEnded(QString());
    player.engine->reportPlaybackStopped();
    QCOMPARE(reports,
             (QList<QVariantList>{
                 {false, QStringLiteral("reason")}, {false, QString()}, {true, QString()}}));
    QVERIFY(reports.at(1).at(1).toString().isNull());
    QVERIFY(reports.at(2).at(1).toString().isNull());
}

void TestReporting::reportIsLogged()
{
    const LogCapture log;
    TestPlayer ended(QStringLiteral("e"));
    TestPlayer stopped(QStringLiteral("s"));
    ended.engine->reportPlaybackEnded(QStringLiteral("reason"));
    stopped.engine->reportPlaybackStopped();
    QCoreApplication::processEvents();
    QCOMPARE(
        log.texts("DEBUG"),
        (QStringList{
            "token: e", "token s",
            "Enter SimplePlayer SimplePlayerImpl::on_sendPlaybackEnded: token: estop: 0, msg: "
            "reason",
            "Leave SimplePlayer SimplePlayerImpl::on_sendPlaybackEnded: token: e",
            "Enter SimplePlayer SimplePlayerImpl::on_sendPlaybackEnded: token: sstop: 1, msg: ",
            "Leave SimplePlayer SimplePlayerImpl::on_sendPlaybackEnded: token: s"}));
}

void TestReporting::laterReportsAreLoggedAndDropped()
{
    LogCapture log;
    TestPlayer player;
    const Outcomes outcomes(&player);
    player.engine->reportPlaybackStopped();
    QCoreApplication::processEvents();
    log.clear();
    player.engine->reportPlaybackEnded(QStringLiteral("late"));
    QCoreApplication::processEvents();
    QCOMPARE(log.texts("DEBUG"),
             (QStringList{
                 "token: T",
                 "Enter SimplePlayer SimplePlayerImpl::on_sendPlaybackEnded: token: Tstop: 0, msg: "
                 "late",
                 alreadyReported}));
    QCOMPARE(outcomes.all, QStringList{"stopped T"});
}

void TestReporting::reportsQueuedBackToBackGiveTheFirstOnesSignal()
{
    TestPlayer player;
    const Outcomes outcomes(&player);
    player.engine->reportPlaybackEnded(QStringLiteral("first"));
    player.engine->reportPlaybackEnded(QString());
    player.engine->reportPlaybackStopped();
    QCoreApplication::processEvents();
    QCOMPARE(outcomes.all, QStringList{"error T: first"});
}

void TestReporting::stopWinsWhateverItsTextSays()
{
    TestPlayer player;
    const Outcomes outcomes(&player);
    QVERIFY(QMetaObject::invokeMethod(player.engine, "on_sendPlaybackEnded", Q_ARG(bool, true),
                                      Q_ARG(QString, QStringLiteral("ignored"))));
    QCOMPARE(outcomes.all, QStringList{"stopped T"});
}

void TestReporting::endReportedIsSetBeforeTheSignal()
{
    TestPlayer player;
    Outcomes outcomes(&player);
    bool setInSlot = false;
    outcomes.inSlot = [&] { setInSlot = player.engine->endReported; };
    player.engine->reportPlaybackEnded(QString());
    QVERIFY(!player.engine->endReported);
    QCoreApplication::processEvents();
    QVERIFY(setInSlot);
    QVERIFY(player.engine->endReported);
}

void TestReporting::reportFromAnotherThreadArrivesOnTheEnginesThread()
{
    TestPlayer player;
    Outcomes outcomes(&player);
    QThread* slotThread = nullptr;
    outcomes.inSlot = [&] { slotThread = QThread::currentThread(); };
    const std::unique_ptr<QThread> reporter(
        QThread::create([&] { player.engine->reportPlaybackEnded(QString()); }));
    reporter->start();
    QVERIFY(reporter->wait());
    QCOMPARE(outcomes.all, QStringList());
    QCoreApplication::processEvents();
    QCOMPARE(outcomes.all, QStringList{"ended T"});
    QCOMPARE(slotThread, thread());
}

void TestReporting::destructionBeforeDeliverySilencesTheReport()
{
    auto player = std::make_unique<TestPlayer>();
    const Outcomes outcomes(player.get());
    player->startPlayback();
    QVERIFY(player->stopPlayback());
    player.reset();
    QCoreApplication::processEvents();
    QCOMPARE(outcomes.all, QStringList());
}

static void addReports()
{
    QTest::addColumn<QString>("report");
    for (const char* report : {"ended", "stopped", "error"}) {
        QTest::newRow(report) << report;
    }
}

/// Starts a playback and has its engine report an outcome of the given kind.
static void report(TestPlayer& player, const QString& kind)
{
    player.startPlayback();
    if (kind == "stopped") {
        player.stopPlayback();
    } else {
        player.engine->reportPlaybackEnded(kind == "error" ? QStringLiteral("reason") : QString());
    }
}

void TestReporting::clientMayCallAnythingInItsSlot_data()
{
    addReports();
}

void TestReporting::clientMayCallAnythingInItsSlot()
{
    QFETCH(QString, report);
    TestPlayer player;
    Outcomes outcomes(&player);
    outcomes.inSlot = [&player] {
        player.stopPlayback();
        player.startPlayback();
        player.pausePlayback();
        player.stopPlayback();
        player.engine->releaseGstPipeline();
        player.stopPlayback();
        player.startPlayback();
    };
    ::report(player, report);
    QCoreApplication::processEvents();
    QCOMPARE(outcomes.all.size(), 1);
    QVERIFY(outcomes.all.first().startsWith(report));
}

void TestReporting::clientMayDeleteItsPlayerInItsSlot_data()
{
    QTest::addColumn<QString>("report");
    QTest::addColumn<bool>("later");
    for (const char* report : {"ended", "stopped", "error"}) {
        QTest::addRow("%s, deleteLater", report) << report << true;
        QTest::addRow("%s, delete", report) << report << false;
    }
}

void TestReporting::clientMayDeleteItsPlayerInItsSlot()
{
    QFETCH(QString, report);
    QFETCH(bool, later);
    const LogCapture log;
    auto* player = new TestPlayer;
    const QPointer<TestPlayer> guard(player);
    Outcomes outcomes(player);
    outcomes.inSlot = [player, later] {
        if (later) {
            player->deleteLater();
        } else {
            delete player;
        }
    };
    ::report(*player, report);
    // A second report waits behind the first: it must not reach the deleted engine.
    player->engine->reportPlaybackEnded(QStringLiteral("second"));
    QTRY_VERIFY_WITH_TIMEOUT(!guard, patience);
    QCOMPARE(outcomes.all.size(), 1);
    // The slot logs its leave line although its engine may be deleted.
    QVERIFY(log.texts("DEBUG").contains(
        "Leave SimplePlayer SimplePlayerImpl::on_sendPlaybackEnded: token: T"));
}

KOVA_TEST(TestReporting)
#include "tst_reporting.moc"
