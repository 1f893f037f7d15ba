#ifndef FUZZ_GREEDY_SINK_H
#define FUZZ_GREEDY_SINK_H

/// Replaces "alsasink" by an element that accepts all sound at once, without a clock.
void useGreedySink();

#endif
