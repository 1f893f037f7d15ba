#ifndef VIRTUALCARD_OTHER_THREADS_H
#define VIRTUALCARD_OTHER_THREADS_H

#include "EventLog.h"

/// Records whether the calling thread only waits for a card. A thread that never calls this is not
/// waiting.
void setWaitingForCard(bool isWaiting);

/// True if at some point after `since` every other thread was blocked: every thread of this process
/// that was not waiting for a card, and every process that this one started, because a player may
/// receive its sound from such a process. False in case of doubt. Checks now unless another call
/// has checked since `since`.
bool othersWereAsleep(Nanoseconds since);

#endif
