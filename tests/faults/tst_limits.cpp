#include "faults/Sources.h"

#include "kit/HttpServer.h"
#include "kit/Media.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"
#include "kit/VirtualCard.h"

#include <QtTest/QtTest>

#include <csignal>

/// Players of a process that has no more descriptors or no more memory, each in a process of its
/// own.
class TestLimits : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();

    void startWithFewDescriptorsHasOneOutcome_data();
    void startWithFewDescriptorsHasOneOutcome();
    void startWithLittleMemoryHasOneOutcome_data();
    void startWithLittleMemoryHasOneOutcome();

private:
    /// What a process with a limit has come to.
    struct Life
    {
        QStringList lines; ///< what it said
        QString errors;    ///< what stands on its stderr
        int signal = 0;    ///< that ended it; 0 when it ended by itself
        bool failed = false;

        /// The lines with a word in front, without it.
        QStringList of(const QString& prefix) const;
    };

    Life live(const QString& source, const QString& limit, int amount, const QString& moment) const;
    void checkPlayers(const Life& life) const;

    media::Pcm sound;
    QString item;
};

void TestLimits::initTestCase()
{
    // Fits into a FIFO: the writer never waits.
    sound = media::noise(media::SampleFormat::S16, 48000, 2, 9600);
    item = media::writeWav("item.wav", sound);
}

// ---- Processes ---------------------------------------------------------------------------------

QStringList TestLimits::Life::of(const QString& prefix) const
{
    QStringList found;
    for (const QString& line : lines) {
        if (line.startsWith(prefix)) {
            found << line.mid(prefix.size());
        }
    }
    return found;
}

TestLimits::Life TestLimits::live(const QString& source, const QString& limit, int amount,
                                  const QString& moment) const
{
    const bool isWeb = source == "web";
    const ScriptedServer server(httpHeaders(media::readFile(item).size()) + media::readFile(item),
                                ScriptedServer::Then::Close);
    ChildProcess process;
    QElapsedTimer sinceStart;
    sinceStart.start();
    process.start(TestProcess::startable(QCoreApplication::applicationDirPath() + "/limitedplayer"),
                  {isWeb ? "uri" : source, limit, QString::number(amount), moment,
                   isWeb ? server.url() : item, TestProcess::path("limited-fifo"), "limited",
                   "next"});
    const bool ended = process.waitForFinished(patience);
    Life life;
    life.lines = QString::fromUtf8(process.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    life.errors = QString::fromUtf8(process.readAllStandardError());
    // Qt tells a crash, and has the signal as the exit code.
    life.signal = process.exitStatus() == QProcess::CrashExit ? process.exitCode() : 0;
    life.failed = !ended || (life.signal == 0 && process.exitCode() != 0);
    tellMeasured(life.signal == 0
                     ? life.lines
                     : life.lines + QStringList(QStringLiteral("signal %1").arg(life.signal)),
                 sinceStart);
    return life;
}

/// Holds for every life: each player that was made has one outcome, and "ended" means that all was
/// heard.
void TestLimits::checkPlayers(const Life& life) const
{
    QVERIFY2(!life.failed, qPrintable(life.lines.join(", ") + life.errors));
    QVERIFY(!life.lines.contains("crashed"));
    int outcomes = 0;
    for (const QString& line : life.lines) {
        outcomes += QRegularExpression("^(ended|stopped|error) token").match(line).hasMatch();
    }
    const bool cutShort = life.signal != 0 || life.lines.contains("stuck");
    QVERIFY2(outcomes == 1 || (cutShort && outcomes == 0), qPrintable(life.lines.join(", ")));
}

/// What was heard on a card.
static QByteArray heardOn(const VirtualCard& card)
{
    return media::withoutTrailingSilence(card.samples(), 4);
}

// ---- Descriptors -------------------------------------------------------------------------------

void TestLimits::startWithFewDescriptorsHasOneOutcome_data()
{
#if defined(__SANITIZE_THREAD__)
    QSKIP("GStreamer's own synchronisation is invisible in a process that does not count its "
          "objects");
#elif defined(__SANITIZE_ADDRESS__)
    QSKIP("UndefinedBehaviorSanitizer looks at memory through pipes, which take descriptors");
#endif
    QTest::addColumn<QString>("source");
    QTest::addColumn<int>("amount");
    QTest::addColumn<QString>("moment");
    QVector<int> amounts{0, 2, 4, 5, 40};
    if (isLong()) {
        amounts.clear();
        for (int amount = 0; amount <= 40; ++amount) {
            amounts << amount;
        }
    }
    for (const char* source : {"uri", "data", "pipe", "web"}) {
        for (const char* moment : {"first", "later"}) {
            for (const int amount : qAsConst(amounts)) {
                QTest::addRow("%s, %d, %s player", source, amount, moment)
                    << source << amount << moment;
            }
        }
    }
}

/// What GLib ends a process with that has no descriptor for a main context.
static bool isEndByGLib(const QString& errors)
{
    return errors.contains("GLib-ERROR **") &&
           errors.contains("Creating pipes for GWakeup: Too many open files");
}

void TestLimits::startWithFewDescriptorsHasOneOutcome()
{
    QFETCH(QString, source);
    QFETCH(int, amount);
    QFETCH(QString, moment);
    const VirtualCard card("limited");
    const VirtualCard nextCard("next");
    const Life life = live(source, "descriptors", amount, moment);
    checkPlayers(life);
    if (QTest::currentTestFailed()) {
        return;
    }
    if (life.signal != 0) {
        // The source of web items makes a main context of its own.
        QCOMPARE(source, QString("web"));
        QVERIFY(life.signal == SIGTRAP || life.signal == SIGABRT);
        QVERIFY2(isEndByGLib(life.errors), qPrintable(life.errors));
        return;
    }
    QVERIFY(!life.lines.contains("stuck") && !life.lines.contains("nothing"));
    if (life.lines.contains("ended token")) {
        QCOMPARE(difference(heardOn(card), sound.samples), QString());
    }
    QVERIFY(amount < 40 || life.lines.contains("ended token"));
    if (amount == 0 && moment == "first") {
        // GStreamer could not read what elements there are, and never tries again.
        QCOMPARE(life.of("next "), QStringList({"refused", "error token: Not initialized"}));
        return;
    }
    QCOMPARE(life.of("next "), QStringList({"started", "ended token"}));
    // The forerunner was heard on the same card.
    QCOMPARE(difference(heardOn(nextCard).right(sound.samples.size()), sound.samples), QString());
}

// ---- Memory ------------------------------------------------------------------------------------

void TestLimits::startWithLittleMemoryHasOneOutcome_data()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    QSKIP("A sanitizer reserves terabytes of memory for itself");
#endif
    if (qEnvironmentVariableIsSet("KOVA_EMULATOR")) {
        QSKIP("The limit would be that of the emulator, which needs memory itself");
    }
    QTest::addColumn<QString>("source");
    QTest::addColumn<int>("kibibytes");
    QVector<int> amounts{0, 2048, 24576, 524288};
    if (isLong()) {
        amounts.clear();
        for (int amount = 0; amount <= 65536; amount += 1024) {
            amounts << amount;
        }
        amounts << 131072 << 262144 << 524288;
    }
    for (const char* source : {"uri", "data", "pipe"}) {
        for (const int amount : qAsConst(amounts)) {
            QTest::addRow("%s, %d KiB", source, amount) << source << amount;
        }
    }
}

void TestLimits::startWithLittleMemoryHasOneOutcome()
{
    QFETCH(QString, source);
    QFETCH(int, kibibytes);
    const VirtualCard card("limited");
    const VirtualCard nextCard("next");
    const Life life = live(source, "memory", kibibytes, "first");
    checkPlayers(life);
    if (QTest::currentTestFailed()) {
        return;
    }
    // GLib and the C++ library end a process that has no memory, also while they tell of it.
    QVERIFY2(life.signal == 0 || life.signal == SIGTRAP || life.signal == SIGABRT ||
                 life.signal == SIGSEGV,
             qPrintable(life.errors));
    if (life.lines.contains("ended token")) {
        QCOMPARE(difference(heardOn(card), sound.samples), QString());
    }
    QVERIFY(kibibytes < 524288 || life.lines.contains("ended token"));
    const bool lackedThread = life.errors.contains("failed to create thread");
    const bool cutShort = life.signal != 0 || life.lines.contains("stuck");
    if (!cutShort && !lackedThread && !life.lines.contains("nothing")) {
        QCOMPARE(life.of("next "), QStringList({"started", "ended token"}));
        QCOMPARE(difference(heardOn(nextCard), sound.samples), QString());
    }
}

KOVA_TEST(TestLimits)
#include "tst_limits.moc"
