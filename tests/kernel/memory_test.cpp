// Counted allocators, failure injection, size checks and the per-thread
// status callback.
#include "kernel_ref.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

TEST(KernelMemory, EveryAllocatorIsCountedUntilFreed) {
    const int64_t base = KrnMemOutstanding();
    void *a = KrnMemAlloc(10);
    void *z = KrnMemAllocZeroed(7, 3);
    void *h = KrnMemAllocHandle(0);
    void *r = KrnMemRealloc(nullptr, 5);
    ASSERT_TRUE(a && z && h && r);
    EXPECT_EQ(KrnMemOutstanding(), base + 4);
    for (int i = 0; i < 21; ++i)
        EXPECT_EQ(static_cast<uint8_t *>(z)[i], 0);
    for (int i = 0; i < 5; ++i)
        static_cast<uint8_t *>(r)[i] = uint8_t(i + 1);
    r = KrnMemRealloc(r, 1 << 20); // growth keeps the count and the contents
    ASSERT_NE(r, nullptr);
    EXPECT_EQ(static_cast<uint8_t *>(r)[4], 5);
    EXPECT_EQ(KrnMemOutstanding(), base + 4);
    KrnMemFree(a);
    KrnMemFree(z);
    KrnMemFreeHandle(h);
    KrnMemFree(r);
    KrnMemFree(nullptr);
    EXPECT_EQ(KrnMemOutstanding(), base);
}

TEST(KernelMemory, FailAfterFailsExactlyOneLaterAllocation) {
    const int64_t base = KrnMemOutstanding();
    EXPECT_EQ(KrnMemFailAfter(2), -1);
    void *a = KrnMemAlloc(1), *b = KrnMemAllocZeroed(1, 1);
    EXPECT_EQ(KrnMemAllocHandle(1), nullptr);
    void *c = KrnMemAlloc(1); // fired once only
    EXPECT_TRUE(a && b && c);
    EXPECT_EQ(KrnMemFailAfter(-1), -1);
    KrnMemFree(a), KrnMemFree(b), KrnMemFree(c);

    EXPECT_EQ(KrnMemFailAfter(5), -1);
    void *d = KrnMemAlloc(1);
    EXPECT_EQ(KrnMemFailAfter(-1), 4); // armed, not fired
    KrnMemFree(d);

    // A failed realloc leaves the old block valid and counted.
    void *e = KrnMemAlloc(8);
    KrnMemFailAfter(0);
    EXPECT_EQ(KrnMemRealloc(e, 64), nullptr);
    EXPECT_EQ(KrnMemOutstanding(), base + 1);
    KrnMemFree(e);
    EXPECT_EQ(KrnMemOutstanding(), base);
}

TEST(KernelMemory, FailAfterIsPerThread) {
    KrnMemFailAfter(0);
    void *other = nullptr;
    std::thread([&] { other = KrnMemAlloc(4); }).join();
    EXPECT_NE(other, nullptr);
    EXPECT_EQ(KrnMemAlloc(4), nullptr);
    KrnMemFree(other);
}

TEST(KernelMemory, CheckedSizeDetectsOverflow) {
    EXPECT_EQ(KrnCheckedSize(3, 5, 7), 105u);
    EXPECT_EQ(KrnCheckedSize(3, 5, 0), 15u);
    EXPECT_EQ(KrnCheckedSize(SIZE_MAX / 2 + 1, 2, 1), 0u);
    EXPECT_EQ(KrnCheckedSize(size_t(1) << 32, size_t(1) << 31, 4), 0u);
    EXPECT_EQ(KrnMemAllocZeroed(SIZE_MAX / 4, 8), nullptr);
}

int32_t RZAPI CallbackA(int32_t, void *) { return 1; }
int32_t RZAPI CallbackB(int32_t, void *) { return 0; }

TEST(KernelStatusCallback, KeptPerThreadAndSwappedWithPrevious) {
    int user = 0;
    RZSTATUSCALLBACK prev = CallbackB;
    void *prevUser = &user;
    EXPECT_EQ(KrnSetStatusCallback(CallbackA, &user, &prev, &prevUser), KRN_OK);
    EXPECT_EQ(prev, nullptr);
    EXPECT_EQ(prevUser, nullptr);
    void *got = nullptr;
    EXPECT_EQ(KrnGetStatusCallback(&got), CallbackA);
    EXPECT_EQ(got, &user);

    std::thread([] {
        void *u = &u;
        EXPECT_EQ(KrnGetStatusCallback(&u), nullptr);
        EXPECT_EQ(u, nullptr);
        KrnSetStatusCallback(CallbackB, nullptr, nullptr, nullptr);
    }).join();
    EXPECT_EQ(KrnGetStatusCallback(nullptr), CallbackA);

    EXPECT_EQ(KrnSetStatusCallback(nullptr, nullptr, &prev, &prevUser), KRN_OK);
    EXPECT_EQ(prev, CallbackA);
    EXPECT_EQ(prevUser, &user);
    EXPECT_EQ(KrnGetStatusCallback(nullptr), nullptr);
}

} // namespace
