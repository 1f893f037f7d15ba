#include "PlainLoop.h"
#include "Contender.h"

#include <condition_variable>
#include <mutex>
#include <queue>

static std::mutex mutex;
static std::condition_variable posted;
static std::queue<std::function<void()>> calls; ///< guarded by mutex
static bool running = false;                    ///< used by the thread that runs the loop only

void LoopPost::post(const std::function<void()>& call) const
{
    const std::lock_guard<std::mutex> guard(mutex);
    calls.push([call, poster = std::weak_ptr<bool>(alive)] {
        if (!poster.expired()) {
            call();
        }
    });
    posted.notify_one();
}

static std::function<void()> nextCall()
{
    std::unique_lock<std::mutex> guard(mutex);
    posted.wait(guard, [] { return !calls.empty(); });
    std::function<void()> call = std::move(calls.front());
    calls.pop();
    return call;
}

void contender::runLoop()
{
    for (running = true; running;) {
        nextCall()();
    }
}

void contender::quitLoop()
{
    running = false;
}
