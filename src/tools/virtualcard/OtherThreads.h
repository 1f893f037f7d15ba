#ifndef VIRTUALCARD_OTHER_THREADS_H
#define VIRTUALCARD_OTHER_THREADS_H

/// Marks the calling thread as busy with a card while it lives: othersAreAsleep() does not count
/// it.
class InsideCard
{
public:
    InsideCard();
    ~InsideCard();
    InsideCard(const InsideCard&) = delete;
    InsideCard& operator=(const InsideCard&) = delete;
};

/// Whether every thread of this process that is not inside a card sleeps, so that nothing more will
/// happen until time passes or another process does something. When in doubt, they are not asleep.
bool othersAreAsleep();

#endif
