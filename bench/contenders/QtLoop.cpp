// The event loop of the contenders that are Qt applications.
#include "Contender.h"

#include <QtCore/QCoreApplication>

void contender::runLoop()
{
    QCoreApplication::exec();
}

void contender::quitLoop()
{
    QCoreApplication::quit();
}
