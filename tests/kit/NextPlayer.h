#ifndef KIT_NEXT_PLAYER_H
#define KIT_NEXT_PLAYER_H

#include "kit/Source.h"

/// Plays a short item from a source on a card without faults, as the next player of a process that
/// has seen a fault.
/// @return how this differs from perfect playback; empty when it does not
QString problemOfNextPlayer(const Source& source);

#endif
