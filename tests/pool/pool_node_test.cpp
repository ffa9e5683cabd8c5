#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "grabsystem/pool/pool_node.h"
#include "test_support.h"

using namespace GrabSystem;

namespace {

// Exposes the protected link operations.
class OpenNode : public IPoolNodeP {
public:
    using IPoolNodeP::__SetLast;
    using IPoolNodeP::__SetNext;
    using IPoolNodeP::_InsertAfter;
    using IPoolNodeP::_Pop;
    using IPoolNodeP::NodeMutex;
};
class OpenBegin : public CPnBegin {
public:
    using CPnBegin::__SetLast;
};
class OpenEnd : public CPnEnd {
public:
    using CPnEnd::__SetNext;
};

}  // namespace

TEST(PoolNode, SerialIsKeptOnlyWhileUsing) {
    IPoolNodeP node;
    EXPECT_EQ(node.GetState(), eNodeNew);
    EXPECT_EQ(node.GetSerialNum(), 0u);
    node.SetState(eNodeUsing, 42);
    EXPECT_EQ(node.GetSerialNum(), 42u);
    node.SetState(eNodeWaiting, 42);
    EXPECT_EQ(node.GetSerialNum(), 0u);
    node.SetState(eNodeUsing, 42);
    node.SetState(eNodeNew, 42);
    EXPECT_EQ(node.GetSerialNum(), 0u);
    EXPECT_EQ(node.GetState(), eNodeNew);
}

TEST(PoolNode, WithoutPoolPushAndReleaseRefuse) {
    IPoolNodeP node;
    node.SetState(eNodeWaiting, 0);
    EXPECT_FALSE(node.Push());
    node.SetState(eNodeUsing, 5);
    EXPECT_FALSE(node.Release());
    EXPECT_EQ(node.GetState(), eNodeUsing);
    EXPECT_EQ(node.GetSerialNum(), 5u);
}

TEST(PoolNode, LinkOperationsKeepTheChainAndStampTime) {
    grabsys_test::FakeClock clock(500);
    CPnBegin begin;
    CPnEnd end;
    OpenNode a, b, c;
    begin.InsertBefore(&end);
    a.InsertBefore(&end);
    clock.Set(600);
    c.InsertBefore(&end);
    b._InsertAfter(&a);  // begin a b c end
    EXPECT_EQ(a.GetTimeStamp(), 500u);
    EXPECT_EQ(b.GetTimeStamp(), 600u);
    EXPECT_EQ(begin.NextNode(), &a);
    EXPECT_EQ(a.NextNode(), &b);
    EXPECT_EQ(b.NextNode(), &c);
    EXPECT_EQ(c.NextNode(), &end);
    EXPECT_EQ(end.LastNode(), &c);
    EXPECT_EQ(c.LastNode(), &b);
    EXPECT_EQ(b.LastNode(), &a);

    clock.Set(700);
    a.PopAndAppend(&end);  // begin b c a end
    EXPECT_EQ(begin.NextNode(), &b);
    EXPECT_EQ(c.NextNode(), &a);
    EXPECT_EQ(a.NextNode(), &end);
    EXPECT_EQ(a.GetTimeStamp(), 700u);

    clock.Set(800);
    b._Pop();  // begin c a end
    EXPECT_EQ(begin.NextNode(), &c);
    EXPECT_EQ(c.LastNode(), &begin);
    EXPECT_EQ(b.NextNode(), nullptr);
    EXPECT_EQ(b.LastNode(), nullptr);
    EXPECT_EQ(b.GetTimeStamp(), 800u);

    // Popping an unlinked node only refreshes its time stamp.
    clock.Set(900);
    b._Pop();
    EXPECT_EQ(b.GetTimeStamp(), 900u);
    EXPECT_EQ(begin.NextNode(), &c);

    // A null target changes nothing, the time stamp included.
    clock.Set(1000);
    b.InsertBefore(nullptr);
    b._InsertAfter(nullptr);
    b.PopAndAppend(nullptr);
    EXPECT_EQ(b.GetTimeStamp(), 900u);
    EXPECT_EQ(b.NextNode(), nullptr);
}

TEST(PoolNode, SentinelsNeverLinkPastTheirEnds) {
    OpenBegin begin;
    OpenEnd end;
    OpenNode outside;
    // Direct links from a neighbour are stored, but the sentinels do not
    // report them and their virtual setters ignore them.
    begin.InsertBefore(&end);
    outside.InsertBefore(&begin);
    EXPECT_EQ(begin.LastNode(), nullptr);
    begin.__SetLast(&outside);
    EXPECT_EQ(begin.LastNode(), nullptr);
    end.__SetNext(&outside);
    EXPECT_EQ(end.NextNode(), nullptr);
    EXPECT_EQ(begin.NextNode(), &end);
    EXPECT_EQ(end.LastNode(), &begin);

    // Plain nodes take both setters without stamping.
    grabsys_test::FakeClock clock(10);
    OpenNode node;
    node.__SetNext(&end);
    node.__SetLast(&begin);
    EXPECT_EQ(node.NextNode(), &end);
    EXPECT_EQ(node.LastNode(), &begin);
    EXPECT_EQ(node.GetTimeStamp(), 0u);
}

TEST(PoolNode, DestructionWaitsForWhoeverHoldsTheNodeLock) {
    auto* node = new OpenNode;
    std::atomic<bool> locked{false}, letGo{false};
    std::thread holder([&] {
        node->NodeMutex().Lock();
        locked = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        letGo = true;
        node->NodeMutex().Unlock();
    });
    while (!locked) std::this_thread::yield();
    delete node;
    EXPECT_TRUE(letGo) << "the node was destroyed while a derived class still held its lock";
    holder.join();
}
