#include "core/KovaNamedPipe.h"

KovaNamedPipe::KovaNamedPipe(const QString&, int, QObject* parent, bool) : QObject(parent)
{
}
KovaNamedPipe::~KovaNamedPipe() = default;
bool KovaNamedPipe::create()
{
    return false;
}
bool KovaNamedPipe::open(bool)
{
    return false;
}
void KovaNamedPipe::setNonBlock(bool)
{
}
int KovaNamedPipe::read(const char*, int)
{
    return -1;
}
void KovaNamedPipe::close()
{
}
QSocketNotifier* KovaNamedPipe::readNotifier()
{
    return nullptr;
}
