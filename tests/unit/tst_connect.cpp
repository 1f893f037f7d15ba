#include "core/kova.h"
#include "kit/TestMain.h"
#include "kit/TestProcess.h"

#include <QtCore/QProcess>
#include <QtCore/QSocketNotifier>
#include <QtTest/QtTest>

#include <unistd.h>

#include <array>
#include <csignal>
#include <initializer_list>
#include <utility>

/// The connection helper: what it refuses, in debug and in release builds, and what it delivers.
class TestConnect : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void programmingErrorsAbort_data();
    void programmingErrorsAbort();
    void unknownCaseIsNoCase();
    void parametersAreLookedAtWhenTheCallMayBeQueued();
    void directConnectionDeliversInsideEmit();
    void queuedConnectionDeliversFromTheEventLoop();
    void notifierReachesASlotThatTakesTheDescriptor();
    void returnedConnectionCanBeCut();
};

namespace {

constexpr int timeoutMs = 60000;

const char* const parameters =
    "ASSERT: \"verifyConnectionSignalParameters(sender, signal, receiver, type)\"";
const char* const connection = "ASSERT: \"connection\"";
const char* const accepted = "";

/// A type that QMetaType does not know.
struct Unregistered
{
};

class Emitter : public QObject
{
    Q_OBJECT

Q_SIGNALS:
    void number(int value);
    void unregistered(const Unregistered& value);
};

class Receiver : public QObject
{
    Q_OBJECT

public:
    void onNumber(int value) { numbers.append(value); }

    QList<int> numbers;
};

struct Result
{
    bool crashed;
    int code;
    QByteArray errors;
};

Result run(const QString& program, const QString& name)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // Qt's messages may go to the journal otherwise.
    environment.insert(QStringLiteral("QT_ASSUME_STDERR_HAS_CONSOLE"), QStringLiteral("1"));
    process.setProcessEnvironment(environment);
    process.start(
        TestProcess::startable(QCoreApplication::applicationDirPath() + QLatin1Char('/') + program),
        {name});
    if (!process.waitForFinished(timeoutMs)) {
        return {false, -1, process.errorString().toLocal8Bit()};
    }
    return {process.exitStatus() == QProcess::CrashExit, process.exitCode(),
            process.readAllStandardError()};
}

} // namespace

void TestConnect::programmingErrorsAbort_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("assertion");

    const std::initializer_list<std::pair<const char*, const char*>> cases = {
        {"unregistered-auto", parameters},
        {"unregistered-queued", parameters},
        {"unregistered-blocking", parameters},
        {"unregistered-unique-queued", parameters},
        {"unregistered-direct", accepted},
        {"unregistered-unique-direct", accepted},
        {"unregistered-second", parameters},
        {"unregistered-not-received", parameters},
        {"pointer-queued", accepted},
        {"text-queued", accepted},
        {"nothing-queued", accepted},
        {"notifier-auto", accepted},
        {"null-sender", connection},
        {"null-receiver", connection},
        {"unique-once", accepted},
        {"unique-twice", connection},
    };
    for (const char* program : {"connectcases", "connectcases_release"}) {
        for (const auto& [name, assertion] : cases) {
            QTest::addRow("%s %s", program, name)
                << QString::fromLatin1(program) << QString::fromLatin1(name)
                << QByteArray(assertion);
        }
    }
}

void TestConnect::programmingErrorsAbort()
{
    QFETCH(QString, program);
    QFETCH(QString, name);
    QFETCH(QByteArray, assertion);

    const Result result = run(program, name);
    const bool aborts = !assertion.isEmpty();
    QVERIFY2(result.crashed == aborts, result.errors);
    QCOMPARE(result.code, aborts ? SIGABRT : 0);
    QVERIFY2(result.errors.contains(assertion), result.errors);
    QCOMPARE(result.errors.contains("ASSERT"), aborts);
}

void TestConnect::unknownCaseIsNoCase()
{
    QCOMPARE(run(QStringLiteral("connectcases"), QStringLiteral("no-such-case")).code, 2);
}

void TestConnect::parametersAreLookedAtWhenTheCallMayBeQueued()
{
    const auto verify = [](Qt::ConnectionType type) {
        using Signal = decltype(&Emitter::unregistered);
        return kova::verifyConnectionSignalParameters<Signal, decltype(&Receiver::onNumber)>(
            nullptr, &Emitter::unregistered, nullptr, type);
    };
    QVERIFY(verify(Qt::DirectConnection));
    QVERIFY(!verify(Qt::AutoConnection));
    QVERIFY(!verify(Qt::QueuedConnection));
}

void TestConnect::directConnectionDeliversInsideEmit()
{
    Emitter emitter;
    Receiver receiver;
    kova::connect(&emitter, &Emitter::number, &receiver, &Receiver::onNumber, Qt::DirectConnection);
    emit emitter.number(1);
    QCOMPARE(receiver.numbers, QList<int>{1});
}

void TestConnect::queuedConnectionDeliversFromTheEventLoop()
{
    Emitter emitter;
    Receiver receiver;
    kova::connect(&emitter, &Emitter::number, &receiver, &Receiver::onNumber, Qt::QueuedConnection);
    emit emitter.number(1);
    emit emitter.number(2);
    QVERIFY(receiver.numbers.isEmpty());
    QCoreApplication::processEvents();
    QCOMPARE(receiver.numbers, (QList<int>{1, 2}));
}

void TestConnect::notifierReachesASlotThatTakesTheDescriptor()
{
    std::array<int, 2> ends{};
    QCOMPARE(::pipe(ends.data()), 0);
    Receiver receiver;
    {
        const QSocketNotifier notifier(ends[0], QSocketNotifier::Read);
        kova::connect(&notifier, &QSocketNotifier::activated, &receiver, &Receiver::onNumber,
                      Qt::AutoConnection);
        QCOMPARE(::write(ends[1], "x", 1), ssize_t(1));
        QTRY_VERIFY_WITH_TIMEOUT(!receiver.numbers.isEmpty(), timeoutMs);
    }
    QCOMPARE(receiver.numbers.first(), ends[0]);
    ::close(ends[0]);
    ::close(ends[1]);
}

void TestConnect::returnedConnectionCanBeCut()
{
    Emitter emitter;
    Receiver receiver;
    const QMetaObject::Connection made = kova::connect(&emitter, &Emitter::number, &receiver,
                                                       &Receiver::onNumber, Qt::DirectConnection);
    QVERIFY(QObject::disconnect(made));
    emit emitter.number(1);
    QVERIFY(receiver.numbers.isEmpty());
}

KOVA_TEST(TestConnect)
#include "tst_connect.moc"
