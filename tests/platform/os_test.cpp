#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "grabsystem/platform/os/os.h"

#include "test_support.h"

using namespace GrabSystem::platform;

namespace {

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

TEST(Os, TheEnvClockTicksInMillisecondsAndATestMayReplaceIt) {
    Env* env = Env::Default();
    const uint32_t before = GetTickMs();
    env->SleepMs(20);
    const uint32_t after = GetTickMs();
    EXPECT_GE(static_cast<uint32_t>(after - before), 19u);
    EXPECT_LT(static_cast<uint32_t>(after - before), 5000u);
    {
        grabsys_test::FakeClock clock(0xFFFFFFFFu);
        EXPECT_EQ(GetTickMs(), 0xFFFFFFFFu);
    }
    EXPECT_EQ(Env::Default(), env);
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
    Env* env = Env::System();
    static std::atomic<int> ran{0};
    ThreadFunc body = [](void* arg) -> unsigned long {
        ran++;
        return *static_cast<unsigned long*>(arg);
    };
    unsigned long value = 7;
    ThreadHandle thread = env->StartThread(body, &value);
    ASSERT_NE(thread, nullptr);
    env->SetThreadPriority(thread, eThreadPriorityNormal);
    unsigned long code = 0;
    ASSERT_TRUE(env->WaitThread(thread, &code));
    EXPECT_EQ(code, 7u);
    code = 0;
    EXPECT_TRUE(env->WaitThread(thread, &code));  // an ended thread answers again
    EXPECT_EQ(code, 7u);
    env->CloseThread(thread);

    // Closing the handle of a running thread lets it run to its end.
    static std::atomic<bool> release{false};
    ThreadFunc waiter = [](void*) -> unsigned long {
        while (!release.load()) Env::System()->SleepMs(1);
        ran++;
        return 0;
    };
    ThreadHandle detached = env->StartThread(waiter, nullptr);
    ASSERT_NE(detached, nullptr);
    env->CloseThread(detached);
    release = true;
    for (int i = 0; i < 2000 && ran.load() < 2; ++i) env->SleepMs(1);
    EXPECT_EQ(ran.load(), 2);

    EXPECT_EQ(env->StartThread(nullptr, nullptr), nullptr);
    EXPECT_FALSE(env->WaitThread(nullptr, nullptr));
    EXPECT_FALSE(env->SetThreadPriority(nullptr, eThreadPriorityNormal));
}
