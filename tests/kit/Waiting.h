#ifndef KIT_WAITING_H
#define KIT_WAITING_H

#include <functional>

// A build whose tests are expected to fail may define a shorter wait.
#ifndef KOVA_TEST_PATIENCE
#define KOVA_TEST_PATIENCE 120000
#endif

/// How long tests wait for an expected condition, in milliseconds: long enough for the slowest
/// checker on a busy machine.
constexpr int patience = KOVA_TEST_PATIENCE;

/// Runs the event loop until `condition` holds. @return whether it did in time
/// QTest::qWaitFor would sleep 10 ms between any two messages of a pipeline.
bool waitFor(const std::function<bool()>& condition);

/// Runs the event loop until all events that are queued now, and all ready GLib sources, are
/// delivered.
void deliverQueuedEvents();

#endif
