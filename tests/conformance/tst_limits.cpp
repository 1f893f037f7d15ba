#include "conformance/Scenario.h"

#include "kit/Effort.h"
#include "kit/HttpServer.h"

#include <QtCore/QRegularExpression>

#include <csignal>
#include <numeric>

/// Players of a process that has few descriptors or little memory left. Each is in a process of its
/// own, limitedplayer.
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
    media::Pcm sound;
    QString file;
};

void TestLimits::initTestCase()
{
    // Fits into a FIFO: the writer never waits.
    sound = media::noise(9600);
    file = media::writeWav("item.wav", sound);
}

// ---- Processes ---------------------------------------------------------------------------------

namespace {

/// What the process does and prints.
struct Run
{
    /// Runs the process and waits for its end.
    /// @param kind    the name of a kind of source, or "web" for a file from a server
    /// @param which   "first" or "later"
    Run(QString kind, const QString& limit, int amount, const QString& which, QString item);

    /// The lines that begin with a prefix, without it.
    QStringList linesWith(const QString& prefix) const;
    bool has(const QString& line) const { return lines.contains(line); }
    /// Whether the limited player came to no regular end.
    bool isCutShort() const { return signal != 0 || has("stuck"); }

    /// What is wrong with any run; empty when nothing is. Each player that was made has one
    /// outcome.
    QString problem() const;

    QStringList lines;
    QString errors; ///< what it wrote to stderr
    int signal = 0; ///< that ended it; 0 when it ended by itself
    bool failed = false;
};

} // namespace

Run::Run(QString kind, const QString& limit, int amount, const QString& which, QString item)
{
    const QByteArray bytes = media::readFile(item);
    const ScriptedServer server(httpHeaders(bytes.size()) + bytes, ScriptedServer::Then::Close);
    if (kind == "web") {
        kind = Source::uri().name;
        item = server.url();
    }
    ChildProcess process;
    process.start(TestProcess::startable(QCoreApplication::applicationDirPath() + "/limitedplayer"),
                  {kind, limit, QString::number(amount), which, item,
                   TestProcess::path("limited-fifo"), "limited", "next"});
    const bool ended = process.waitForFinished(patience);
    lines = QString::fromUtf8(process.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    errors = QString::fromUtf8(process.readAllStandardError());
    // Qt reports a crash, with the signal as the exit code.
    signal = process.exitStatus() == QProcess::CrashExit ? process.exitCode() : 0;
    failed = !ended || (signal == 0 && process.exitCode() != 0);
}

QStringList Run::linesWith(const QString& prefix) const
{
    QStringList found;
    for (const QString& line : lines) {
        if (line.startsWith(prefix)) {
            found << line.mid(prefix.size());
        }
    }
    return found;
}

QString Run::problem() const
{
    const int outcomes = lines.filter(QRegularExpression("^(ended|stopped|error) token")).size();
    const bool isGood =
        !failed && !has("crashed") && (outcomes == 1 || (isCutShort() && outcomes == 0));
    return isGood ? QString() : lines.join(", ") + errors;
}

// ---- Descriptors -------------------------------------------------------------------------------

void TestLimits::startWithFewDescriptorsHasOneOutcome_data()
{
#if defined(__SANITIZE_THREAD__)
    QSKIP("The sanitizer does not see GStreamer's own synchronisation unless objects are counted");
#elif defined(__SANITIZE_ADDRESS__)
    QSKIP("UndefinedBehaviorSanitizer looks at memory through pipes, which take descriptors");
#endif
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("amount");
    QTest::addColumn<QString>("which");
    QVector<int> amounts{0, 2, 4, 5, 40};
    if (isLongRun()) {
        amounts.resize(41);
        std::iota(amounts.begin(), amounts.end(), 0);
    }
    QStringList kinds{"web"};
    for (const Source* source : Source::all()) {
        kinds << source->name;
    }
    for (const QString& kind : qAsConst(kinds)) {
        for (const char* which : {"first", "later"}) {
            for (const int amount : qAsConst(amounts)) {
                QTest::addRow("%s, %d, %s player", qPrintable(kind), amount, which)
                    << kind << amount << QString(which);
            }
        }
    }
}

void TestLimits::startWithFewDescriptorsHasOneOutcome()
{
    QFETCH(QString, kind);
    QFETCH(int, amount);
    QFETCH(QString, which);
    const VirtualCard card("limited");
    const VirtualCard nextCard("next");
    const Run run(kind, "descriptors", amount, which, file);
    QCOMPARE(run.problem(), QString());
    if (run.signal != 0) {
        // GStreamer's HTTP source makes a main context, for which GLib needs a descriptor.
        QCOMPARE(kind, QString("web"));
        QVERIFY(run.signal == SIGTRAP || run.signal == SIGABRT);
        QVERIFY2(run.errors.contains("GLib-ERROR **") &&
                     run.errors.contains("Creating pipes for GWakeup: Too many open files"),
                 qPrintable(run.errors));
        return;
    }
    QVERIFY(!run.has("stuck") && !run.has("nothing"));
    if (run.has("ended token")) {
        QCOMPARE(media::difference(card.samples(), sound.samples), QString());
    }
    QVERIFY(amount < 40 || run.has("ended token"));
    if (amount == 0 && which == "first") {
        // GStreamer could not read which elements there are, and does not try again.
        QCOMPARE(run.linesWith("next "), QStringList({"refused", "error token: Not initialized"}));
        return;
    }
    QCOMPARE(run.linesWith("next "), QStringList({"started", "ended token"}));
    // The player before was recorded by the same card.
    const QByteArray recorded = media::withoutTrailingSilence(nextCard.samples(), 4);
    QCOMPARE(media::difference(recorded.right(sound.samples.size()), sound.samples), QString());
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
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("kibibytes");
    QVector<int> amounts{0, 2048, 24576, 524288};
    if (isLongRun()) {
        amounts = {131072, 262144, 524288};
        for (int amount = 0; amount <= 65536; amount += 1024) {
            amounts << amount;
        }
    }
    for (const Source* source : Source::all()) {
        for (const int amount : qAsConst(amounts)) {
            QTest::addRow("%s, %d KiB", source->name, amount) << QString(source->name) << amount;
        }
    }
}

void TestLimits::startWithLittleMemoryHasOneOutcome()
{
    QFETCH(QString, kind);
    QFETCH(int, kibibytes);
    const VirtualCard card("limited");
    const VirtualCard nextCard("next");
    const Run run(kind, "memory", kibibytes, "first", file);
    QCOMPARE(run.problem(), QString());
    // GLib and the C++ library end a process that has no memory, also while they log that.
    QVERIFY2(run.signal == 0 || run.signal == SIGTRAP || run.signal == SIGABRT ||
                 run.signal == SIGSEGV,
             qPrintable(run.errors));
    if (run.has("ended token")) {
        QCOMPARE(media::difference(card.samples(), sound.samples), QString());
    }
    QVERIFY(kibibytes < 524288 || run.has("ended token"));
    const bool lackedThread = run.errors.contains("failed to create thread");
    if (!run.isCutShort() && !lackedThread && !run.has("nothing")) {
        QCOMPARE(run.linesWith("next "), QStringList({"started", "ended token"}));
        QCOMPARE(media::difference(nextCard.samples(), sound.samples), QString());
    }
}

KOVA_TEST(TestLimits)
#include "tst_limits.moc"
