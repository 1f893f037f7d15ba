#ifndef TEST_SUPPORT_WAITING_H
#define TEST_SUPPORT_WAITING_H

// A build that is meant to fail may say how long it is worth waiting.
#ifndef KOVA_TEST_PATIENCE
#define KOVA_TEST_PATIENCE 120000
#endif

/// How long tests wait for what must happen, in milliseconds: long enough for the slowest checker
/// on a machine that is busy with something else.
constexpr int patience = KOVA_TEST_PATIENCE;

#endif
