#include "kit/Effort.h"

#include <QtCore/QDebug>

bool isLongRun()
{
    return qEnvironmentVariableIntValue("KOVA_LONG_TESTS") > 0;
}

bool isSlowBuild()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#else
    return qEnvironmentVariableIsSet("KOVA_EMULATOR");
#endif
}

int repetitions(int usual, int many)
{
    return isLongRun() ? many : isSlowBuild() ? (usual + 1) / 2 : usual;
}

void allowLongFunctions()
{
    const int hourMs = 3600000;
    qputenv("QTEST_FUNCTION_TIMEOUT", QByteArray::number(hourMs));
}

static quint32 seedOfProcess()
{
    static const quint32 seed = [] {
        const char* const variable = "KOVA_SEED";
        const quint32 chosen = qEnvironmentVariableIsSet(variable)
                                   ? qEnvironmentVariable(variable).toUInt()
                                   : QRandomGenerator::global()->generate();
        qInfo("%s=%u repeats the same random choices", variable, chosen);
        return chosen;
    }();
    return seed;
}

QRandomGenerator randomGenerator(int stream)
{
    return QRandomGenerator(seedOfProcess() + static_cast<quint32>(stream));
}
