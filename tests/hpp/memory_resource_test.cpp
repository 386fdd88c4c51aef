// The owner as a memory resource of the standard library.

#include "hpp/hpp_fixture.h"

#include <stdint.h>

#include <memory_resource>
#include <new>
#include <string>
#include <vector>

namespace {

using MemoryResource = Hpp;

bool is_aligned(const void *piece, size_t alignment)
{
    return reinterpret_cast<uintptr_t>(piece) % alignment == 0;
}

}  // namespace

TEST_F(MemoryResource, ServesContainersUnderItsTag)
{
    qv::owner owner(TAG);
    {
        std::pmr::vector<std::pmr::string> texts(&owner);
        for (int i = 0; i < 20; ++i)
            texts.emplace_back("a text too long to be kept within the string itself");
        EXPECT_EQ(owner.flags(texts.data()), ZR_MEMM_FLAG_RECORDED);
        EXPECT_EQ(owner.flags(texts[0].data()), ZR_MEMM_FLAG_RECORDED);
    }
    EXPECT_EQ(heap.unreleased(), steps{});
}

TEST_F(MemoryResource, AsksTheHeapForAsMuchAsItIsAskedFor)
{
    qv::owner owner(TAG);
    for (const size_t alignment : {1, 2, 4, 8, 16}) {
        heap.start_over();
        void *block = owner.allocate(100, alignment);
        owner.deallocate(block, 100, alignment);
        EXPECT_EQ(heap.take_steps(), (steps{"malloc 100 -> block 1", "free block 1"})) << alignment;
    }
}

TEST_F(MemoryResource, GivesABlockForNoBytes)
{
    qv::owner owner(TAG);
    void *block = owner.allocate(0);
    EXPECT_NE(block, nullptr);
    owner.deallocate(block, 0);
    EXPECT_EQ(heap.take_steps(), (steps{"malloc 0 -> block 1", "free block 1"}));
}

TEST_F(MemoryResource, AlignsAsFarAsItIsAsked)
{
    qv::owner owner(TAG);
    for (size_t alignment = 32; alignment <= 65536; alignment *= 2) {
        heap.start_over();
        auto *piece = static_cast<BYTE *>(owner.allocate(100, alignment));
        EXPECT_TRUE(is_aligned(piece, alignment)) << alignment;
        OS_memset(piece, 0xFF, 100);
        owner.deallocate(piece, 100, alignment);
        EXPECT_EQ(heap.take_steps(),
                  (steps{words("malloc ", 100 + alignment, " -> block 1"), "free block 1"}));
    }
}

TEST_F(MemoryResource, AlignsWhereverTheHeapPlacesItsBlocks)
{
    constexpr size_t alignment = 64;
    qv::owner owner(TAG);
    for (uint64_t size = 1; size < 200; size += 16) {
        owner.alloc(size);
        EXPECT_TRUE(is_aligned(owner.allocate(size, alignment), alignment)) << size;
    }
    EXPECT_EQ(owner.free_all(), 26) << "pieces that nobody deallocates go with the tag";
}

TEST_F(MemoryResource, ThrowsBadAllocWhenTheHeapRefuses)
{
    qv::owner owner(TAG);
    for (const size_t alignment : {8, 64}) {
        heap.refuse_allocation(0);
        EXPECT_THROW(static_cast<void>(owner.allocate(100, alignment)), std::bad_alloc) << alignment;
    }
    EXPECT_EQ(owner.free_all(), -1) << "nothing is kept of what was refused";
}

TEST_F(MemoryResource, ThrowsBadAllocWhenTheBytesToAlignDoNotFitTheSize)
{
    qv::owner owner(TAG);
    EXPECT_THROW(static_cast<void>(owner.allocate(SIZE_MAX - 63, 64)), std::bad_alloc);
    EXPECT_EQ(owner.free_all(), -1);
}

TEST_F(MemoryResource, IsEqualToItselfAlone)
{
    const qv::owner owner(TAG), other(TAG + 1);
    EXPECT_TRUE(owner.is_equal(owner));
    EXPECT_FALSE(owner.is_equal(other));
    EXPECT_FALSE(owner.is_equal(*std::pmr::new_delete_resource()));
}

TEST_F(MemoryResource, EveryRefusalInTurnLeavesTheContainerAsItWas)
{
    bool was_refused = true;
    for (unsigned n = 0; was_refused; ++n) {
        qv::owner owner(TAG);
        std::pmr::vector<int> numbers(&owner);
        was_refused = false;
        heap.refuse_allocation(n);
        for (int i = 0; i < 100; ++i) {
            try {
                numbers.push_back(i);
            } catch (const std::bad_alloc &) {
                EXPECT_EQ(numbers.size(), size_t(i));
                was_refused = true;
                break;
            }
        }
        heap.allow_allocations();
        EXPECT_EQ(owner.flags(numbers.data()), numbers.data() != nullptr ? ZR_MEMM_FLAG_RECORDED : 0);
    }
}
