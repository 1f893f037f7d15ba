#ifndef TEST_SUPPORT_WAITING_H
#define TEST_SUPPORT_WAITING_H

/// How long tests wait for what must happen, in milliseconds: long enough for the slowest checker
/// on a machine that is busy with something else.
constexpr int patience = 120000;

#endif
