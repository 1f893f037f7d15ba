#include "Chance.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDebug>
#include <QtCore/QElapsedTimer>

#include <cmath>

/// The seed of this process. It is told, so that what failed can be tried again.
static quint32 theSeed()
{
    static const quint32 seed = [] {
        const char* const variable = "KOVA_RACES_SEED";
        const quint32 chosen = qEnvironmentVariableIsSet(variable)
                                   ? qEnvironmentVariable(variable).toUInt()
                                   : QRandomGenerator::global()->generate();
        qInfo("%s=%u chooses the same again", variable, chosen);
        return chosen;
    }();
    return seed;
}

Chance::Chance(int stream) : generator(theSeed() + static_cast<quint32>(stream))
{
}

int Chance::below(int limit)
{
    return generator.bounded(limit);
}

void Chance::linger(int most, EventLoop loop)
{
    letPass(static_cast<int>(most * std::pow(generator.generateDouble(), 3.0)), loop);
}

void Chance::linger(int most)
{
    linger(most, coin() ? EventLoop::Stands : EventLoop::Turns);
}

void letPass(int microseconds, Chance::EventLoop loop)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.nsecsElapsed() < 1000LL * microseconds) {
        if (loop == Chance::EventLoop::Turns) {
            QCoreApplication::processEvents();
        }
    }
}

int rounds(int usual, int thorough)
{
    if (qEnvironmentVariableIntValue("KOVA_LONG_TESTS") > 0) {
        return thorough;
    }
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    const bool isSlow = true;
#else
    const bool isSlow = qEnvironmentVariableIsSet("KOVA_EMULATOR");
#endif
    return isSlow ? (usual + 1) / 2 : usual;
}

void allowLongFunctions()
{
    const int hourMs = 3600000;
    qputenv("QTEST_FUNCTION_TIMEOUT", QByteArray::number(hourMs));
}
