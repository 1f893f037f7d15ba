#ifndef BENCH_PLAIN_LOOP_H
#define BENCH_PLAIN_LOOP_H

#include <functional>
#include <memory>

/// Posts calls to the event loop of the contenders that have none and report from their own
/// threads. Destroy it on the thread that runs the loop, after the last post.
class LoopPost
{
public:
    /// Queues a call, which is dropped if this object is destroyed before. Thread-safe.
    void post(const std::function<void()>& call) const;

private:
    const std::shared_ptr<bool> alive = std::make_shared<bool>(true);
};

#endif
