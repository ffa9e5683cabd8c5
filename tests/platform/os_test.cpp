#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "grabsystem/platform/os/os.h"

using namespace GrabSystem::platform;

namespace {
std::atomic<uint32_t> g_fake{0};
uint32_t Fake() { return g_fake.load(); }

// Re-entry is what a critical section allows and what the static lock
// analysis cannot express.
void CountReentered(CriticalSection& cs, int& counter) GRABSYS_NO_THREAD_SAFETY_ANALYSIS {
    cs.Enter();
    cs.Enter();
    ++counter;
    cs.Leave();
    cs.Leave();
}
}  // namespace

TEST(Os, TickSourceCanBeReplacedAndRestored) {
    const uint32_t before = GetTickMs();
    SleepMs(20);
    const uint32_t after = GetTickMs();
    EXPECT_GE(static_cast<uint32_t>(after - before), 19u);
    EXPECT_LT(static_cast<uint32_t>(after - before), 5000u);

    g_fake = 0xFFFFFFFFu;
    SetTickSource(&Fake);
    EXPECT_EQ(GetTickMs(), 0xFFFFFFFFu);
    SetTickSource(nullptr);
    EXPECT_LT(static_cast<uint32_t>(GetTickMs() - after), 5000u);
}

TEST(Os, CriticalSectionIsRecursiveAndExcludesOthers) {
    CriticalSection cs;
    int counter = 0;
    auto work = [&] {
        for (int i = 0; i < 10000; ++i) CountReentered(cs, counter);
    };
    std::thread a(work), b(work);
    a.join();
    b.join();
    EXPECT_EQ(counter, 20000);
}

TEST(Os, ThreadsReportExitCodesAndOutliveTheirHandle) {
    static std::atomic<int> ran{0};
    ThreadFunc body = [](void* arg) -> unsigned long {
        ran++;
        return *static_cast<unsigned long*>(arg);
    };
    unsigned long value = 7;
    ThreadHandle thread = StartThread(body, &value);
    ASSERT_NE(thread, nullptr);
    SetThreadPriority(thread, eThreadPriorityNormal);
    unsigned long code = 0;
    ASSERT_TRUE(WaitThread(thread, &code));
    EXPECT_EQ(code, 7u);
    code = 0;
    EXPECT_TRUE(WaitThread(thread, &code));  // an ended thread answers again
    EXPECT_EQ(code, 7u);
    CloseThread(thread);

    // Closing the handle of a running thread lets it run to its end.
    static std::atomic<bool> release{false};
    ThreadFunc waiter = [](void*) -> unsigned long {
        while (!release.load()) SleepMs(1);
        ran++;
        return 0;
    };
    ThreadHandle detached = StartThread(waiter, nullptr);
    ASSERT_NE(detached, nullptr);
    CloseThread(detached);
    release = true;
    for (int i = 0; i < 2000 && ran.load() < 2; ++i) SleepMs(1);
    EXPECT_EQ(ran.load(), 2);

    EXPECT_EQ(StartThread(nullptr, nullptr), nullptr);
    EXPECT_FALSE(WaitThread(nullptr));
    EXPECT_FALSE(SetThreadPriority(nullptr, eThreadPriorityNormal));
}
