#include <draizu/core/LN_Waits.h>

#include <array>
#include <atomic>

namespace {

constexpr std::array<int, LN_Waits::WaitCount> defaults = {
    300000, // RequestIdle
    100,    // ProgressInterval
    30000,  // SocketConnect
    30000,  // NetworkStall
    30000,  // LoginAbort
    1000,   // OserverStart
    10000,  // OserverStop
    5000,   // ServiceStartPoll
    10000,  // ServiceStopPoll
    10000,  // ServiceProcessExit
    30000,  // ServiceDeletePoll
    500,    // ServicePollStep
    200,    // CopyRetry
    30000,  // ChildTerminate
    500,    // RequestBody
};

// -1 means "not overridden"; atomics keep a test's setting visible to every thread.
struct Overrides
{
    Overrides()
    {
        for (auto & value : values)
            value.store(-1);
    }
    std::array<std::atomic<int>, LN_Waits::WaitCount> values;
};

std::array<std::atomic<int>, LN_Waits::WaitCount> & overrides()
{
    static Overrides instance;
    return instance.values;
}

} // namespace

int LN_Waits::ms(Wait wait)
{
    int const value = overrides()[wait].load(std::memory_order_relaxed);
    return value < 0 ? defaults[wait] : value;
}

int LN_Waits::defaultMs(Wait wait)
{
    return defaults[wait];
}

void LN_Waits::setForTesting(Wait wait, int ms)
{
    overrides()[wait].store(ms, std::memory_order_relaxed);
}

void LN_Waits::resetForTesting()
{
    for (auto & value : overrides())
        value.store(-1, std::memory_order_relaxed);
}
