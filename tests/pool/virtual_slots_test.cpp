// Callers built against these classes call their virtual operations through
// fixed slots of the virtual table, so the order in which the slots are
// declared is part of the interface. Under the Itanium C++ ABI (GCC, clang,
// mingw-w64) a pointer to a virtual member function holds 1 + the slot's
// byte offset; a virtual destructor takes two slots.
#include <gtest/gtest.h>

#include <cstring>

#include "grabsystem/image/img.h"
#include "grabsystem/image/img_pool_ctrl.h"
#include "grabsystem/memory/mem_block_mng.h"

using namespace GrabSystem;

namespace {

template <typename MemberFunction>
long Slot(MemberFunction f) {
    static_assert(sizeof f == 2 * sizeof(void*), "an Itanium member function pointer");
    uintptr_t word = 0;
    std::memcpy(&word, &f, sizeof word);
    return (word & 1) == 0 ? -1 : static_cast<long>((word - 1) / sizeof(void*));
}

struct Node : IPoolNodeP {
    static void Check() {
        EXPECT_EQ(Slot(&Node::__SetLast), 0);
        EXPECT_EQ(Slot(&Node::__SetNext), 1);
        EXPECT_EQ(Slot(&Node::LastNode), 4);  // after the destructor's two
        EXPECT_EQ(Slot(&Node::NextNode), 5);
    }
};

struct Image : IImgP {
    static void Check() {
        EXPECT_EQ(Slot(static_cast<bool (Image::*)(FILE*)>(&Image::_SaveRaw)), 6);
        EXPECT_EQ(Slot(static_cast<bool (Image::*)(FILE*)>(&Image::_LoadRaw)), 7);
        EXPECT_EQ(Slot(&Image::_SaveBmp), 8);
        EXPECT_EQ(Slot(&Image::_LoadBmp), 9);
        EXPECT_EQ(Slot(&Image::_SaveJpg), 10);
        EXPECT_EQ(Slot(&Image::_LoadJpg), 11);
        EXPECT_EQ(Slot(&Image::_ResetMemory), 12);
    }
};

struct Pool : CImgPoolCtrlP {
    Pool() : CImgPoolCtrlP(0, nullptr, ePoolNormal, 8) {}
    static void Check() {
        EXPECT_EQ(Slot(&Pool::_NewNode), 0);
        EXPECT_EQ(Slot(&Pool::_Delete), 1);
        EXPECT_EQ(Slot(&Pool::_PushData), 4);
        EXPECT_EQ(Slot(&Pool::_PushImg), 5);
        EXPECT_EQ(Slot(static_cast<bool (Pool::*)(void*, size_t, size_t, size_t, unsigned)>(&Pool::PushImg)), 6);
        EXPECT_EQ(Slot(static_cast<bool (Pool::*)(IImgP&)>(&Pool::PushImg)), 7);
        EXPECT_EQ(Slot(&Pool::GetImg), 8);
    }
};

struct Manager : CMemBlockMngP {
    static void Check() {
        EXPECT_EQ(Slot(&Manager::_AllocMem), 0);
        EXPECT_EQ(Slot(&Manager::_ReleaseMem), 1);
        EXPECT_EQ(Slot(&Manager::_IsRemainMemEnough), 2);
    }
};

}  // namespace

TEST(VirtualSlots, FollowTheOrderCallersWereBuiltAgainst) {
    Node::Check();
    Image::Check();
    Pool::Check();
    Manager::Check();
    EXPECT_EQ(Slot(&ImgSize::Append), 0);
    EXPECT_EQ(Slot(&ImgSize::Extract), 1);
    EXPECT_EQ(Slot(&CImgInfo::Append), 2);  // after CImgInfo's destructor
    EXPECT_EQ(Slot(&CImgInfo::Extract), 3);
}
