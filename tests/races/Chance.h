#ifndef RACES_CHANCE_H
#define RACES_CHANCE_H

#include <QtCore/QRandomGenerator>

/// Random choices, the same ones for the same seed. Lives on one thread.
class Chance
{
public:
    /// @param stream  another number gives other choices from the same seed
    explicit Chance(int stream = 0);

    /// A number from 0 to `limit` - 1.
    int below(int limit);
    bool coin() { return below(2) == 0; }

    /// What goes on while a client lets time pass.
    enum class EventLoop
    {
        Stands,
        Turns,
    };

    /// Lets up to so many microseconds pass; short times are more likely than long ones.
    void linger(int most, EventLoop loop);
    /// The same, whether the event loop turns or stands.
    void linger(int most);

private:
    QRandomGenerator generator;
};

/// Lets microseconds pass without sleeping.
void letPass(int microseconds, Chance::EventLoop loop);

/// How often something is done.
/// @param usual    on a machine of its own speed; half as often where a sanitizer or an emulator
///                 makes everything slow
/// @param thorough with KOVA_LONG_TESTS=1 in the environment
int rounds(int usual, int thorough);

/// Qt Test ends a function after five minutes, which is too soon for thousands of lives. Called by
/// the constructor of a test.
void allowLongFunctions();

#endif
