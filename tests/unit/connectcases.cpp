// Makes one connection with kova::connect and ends: connectcases CASE. The connections that are
// programming errors abort the process; every other case ends with status 0. Ends with status 2
// when there is no such case.

#include "core/kova.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QSocketNotifier>

#include <sys/resource.h>

#include <array>
#include <iostream>

/// A type that QMetaType does not know.
struct Unregistered
{
    int value = 0;
};

class Emitter : public QObject
{
    Q_OBJECT

Q_SIGNALS:
    void number(int value);
    void text(const QString& value);
    void unregistered(Unregistered value);
    void numberAndUnregistered(int value, const Unregistered& second);
    void pointer(Unregistered* value);
    void nothing();
};

class Receiver : public QObject
{
    Q_OBJECT

public:
    void onNumber(int /*value*/) {}
    void onText(const QString& /*value*/) {}
    void onUnregistered(Unregistered /*value*/) {}
    void onNumberAndUnregistered(int /*value*/, const Unregistered& /*second*/) {}
    void onPointer(Unregistered* /*value*/) {}
    void onNothing() {}
};

namespace {

struct Ends
{
    Emitter emitter;
    Receiver receiver;
};

void connectUnregistered(const Ends& ends, Qt::ConnectionType type)
{
    kova::connect(&ends.emitter, &Emitter::unregistered, &ends.receiver, &Receiver::onUnregistered,
                  type);
}

void connectNumber(const Emitter* sender, const Receiver* target, Qt::ConnectionType type)
{
    kova::connect(sender, &Emitter::number, target, &Receiver::onNumber, type);
}

constexpr auto uniqueConnection =
    static_cast<Qt::ConnectionType>(Qt::DirectConnection | Qt::UniqueConnection);
constexpr auto uniqueQueuedConnection =
    static_cast<Qt::ConnectionType>(Qt::QueuedConnection | Qt::UniqueConnection);

struct Case
{
    const char* name;
    void (*run)(const Ends& ends);
};

const std::array cases = {
    Case{"unregistered-auto",
         [](const Ends& ends) { connectUnregistered(ends, Qt::AutoConnection); }},
    Case{"unregistered-queued",
         [](const Ends& ends) { connectUnregistered(ends, Qt::QueuedConnection); }},
    Case{"unregistered-blocking",
         [](const Ends& ends) { connectUnregistered(ends, Qt::BlockingQueuedConnection); }},
    Case{"unregistered-unique-queued",
         [](const Ends& ends) { connectUnregistered(ends, uniqueQueuedConnection); }},
    Case{"unregistered-direct",
         [](const Ends& ends) { connectUnregistered(ends, Qt::DirectConnection); }},
    Case{"unregistered-unique-direct",
         [](const Ends& ends) { connectUnregistered(ends, uniqueConnection); }},
    Case{"unregistered-second",
         [](const Ends& ends) {
             kova::connect(&ends.emitter, &Emitter::numberAndUnregistered, &ends.receiver,
                           &Receiver::onNumberAndUnregistered, Qt::QueuedConnection);
         }},
    Case{"unregistered-not-received",
         [](const Ends& ends) {
             kova::connect(&ends.emitter, &Emitter::unregistered, &ends.receiver,
                           &Receiver::onNothing, Qt::QueuedConnection);
         }},
    Case{"pointer-queued",
         [](const Ends& ends) {
             kova::connect(&ends.emitter, &Emitter::pointer, &ends.receiver, &Receiver::onPointer,
                           Qt::QueuedConnection);
         }},
    Case{"text-queued",
         [](const Ends& ends) {
             kova::connect(&ends.emitter, &Emitter::text, &ends.receiver, &Receiver::onText,
                           Qt::QueuedConnection);
         }},
    Case{"nothing-queued",
         [](const Ends& ends) {
             kova::connect(&ends.emitter, &Emitter::nothing, &ends.receiver, &Receiver::onNothing,
                           Qt::QueuedConnection);
         }},
    Case{"notifier-auto",
         [](const Ends& ends) {
             QSocketNotifier notifier(0, QSocketNotifier::Read);
             notifier.setEnabled(false);
             kova::connect(&notifier, &QSocketNotifier::activated, &ends.receiver,
                           &Receiver::onNumber, Qt::AutoConnection);
         }},
    Case{"null-sender",
         [](const Ends& ends) { connectNumber(nullptr, &ends.receiver, Qt::AutoConnection); }},
    Case{"null-receiver",
         [](const Ends& ends) { connectNumber(&ends.emitter, nullptr, Qt::AutoConnection); }},
    Case{"unique-once",
         [](const Ends& ends) { connectNumber(&ends.emitter, &ends.receiver, uniqueConnection); }},
    Case{"unique-twice",
         [](const Ends& ends) {
             connectNumber(&ends.emitter, &ends.receiver, uniqueConnection);
             connectNumber(&ends.emitter, &ends.receiver, uniqueConnection);
         }},
};

} // namespace

int main(int argc, char** argv)
{
    // Aborting is what is wanted here: it leaves no core file behind.
    const rlimit noCore = {0, 0};
    setrlimit(RLIMIT_CORE, &noCore);
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const Ends ends;
    for (const Case& oneCase : cases) {
        if (arguments.size() == 2 && arguments.at(1) == QLatin1String(oneCase.name)) {
            oneCase.run(ends);
            return 0;
        }
    }
    std::cerr << "usage: connectcases CASE\n";
    return 2;
}

#include "connectcases.moc"
