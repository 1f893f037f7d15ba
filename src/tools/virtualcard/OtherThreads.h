#ifndef VIRTUALCARD_OTHER_THREADS_H
#define VIRTUALCARD_OTHER_THREADS_H

#include "EventLog.h"

/// Says whether the calling thread has nothing to do but to wait for a card. It keeps what was said
/// last; a thread that never said anything is not waiting.
void setWaitingForCard(bool isWaiting);

/// Whether, at some time since `since`, nothing more would have happened until time passed: every
/// thread of this process that was not waiting for a card slept, and so did every process that this
/// one has started, for a player may get its sound from such a process. When in doubt, they were
/// awake. Looks now unless somebody has looked since.
bool othersWereAsleep(Nanoseconds since);

#endif
