#ifndef BENCH_PLAIN_LOOP_H
#define BENCH_PLAIN_LOOP_H

#include <functional>
#include <memory>

/// The way to the event loop of the contenders that bring none and report from threads of their
/// own. It is destroyed by the thread that runs the loop, when nobody posts any more.
class LoopPost
{
public:
    /// Has the loop make a call, unless this object has been destroyed by then. Any thread may
    /// post.
    void post(const std::function<void()>& call) const;

private:
    const std::shared_ptr<bool> alive = std::make_shared<bool>(true);
};

#endif
