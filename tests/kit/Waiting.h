#ifndef KIT_WAITING_H
#define KIT_WAITING_H

#include <functional>

// A build that is meant to fail may say how long it is worth waiting.
#ifndef KOVA_TEST_PATIENCE
#define KOVA_TEST_PATIENCE 120000
#endif

/// How long tests wait for what must happen, in milliseconds: long enough for the slowest checker
/// on a machine that is busy with something else.
constexpr int patience = KOVA_TEST_PATIENCE;

/// Runs the event loop until `condition` holds. @return whether it did in time
/// QTest::qWaitFor would sleep 10 ms between any two messages of a pipeline.
bool waitFor(const std::function<bool()>& condition);

/// Runs the event loop until everything that is queued now, and GLib has ready, was delivered.
void deliverQueuedEvents();

#endif
