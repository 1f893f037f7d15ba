#ifndef FUZZ_GREEDY_SINK_H
#define FUZZ_GREEDY_SINK_H

/// Puts an element in the place of "alsasink" that takes all sound at once and asks no clock.
void useGreedySink();

#endif
