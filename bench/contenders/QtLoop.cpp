// The event loop of the contenders that live in a Qt application.
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
