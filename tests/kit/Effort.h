#ifndef KIT_EFFORT_H
#define KIT_EFFORT_H

#include <QtCore/QRandomGenerator>

// The length of a test run, and its random choices.

/// Whether this is a long run: KOVA_LONG_TESTS=1 in the environment.
bool isLongRun();

/// Whether a sanitizer or an emulator makes every step many times slower.
bool isSlowBuild();

/// How often something is repeated.
/// @param usual  in a short run; half as often in a slow build
/// @param many   in a long run
int repetitions(int usual, int many);

/// Qt Test ends a test function after five minutes, which is too short for a long run. Called by
/// the constructor of a test.
void allowLongFunctions();

/// A random number generator whose seed is KOVA_SEED in the environment, or else another one for
/// each process, which is printed.
/// @param stream  another number gives another sequence for the same seed
QRandomGenerator randomGenerator(int stream = 0);

#endif
