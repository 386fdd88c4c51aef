// Objects that come and go, and the memory manager behind one section, while other threads work.

#include "foundation/array.h"
#include "foundation/memory.h"
#include "foundation/os.h"
#include "foundation/util.h"

#include "memory/memory_table.h"
#include "os/crew.h"
#include "storms/storm.h"

#include <gtest/gtest.h>
#include <string.h>

#include <atomic>
#include <string>
#include <type_traits>
#include <vector>

namespace {

constexpr uint64_t FIRST_TAG = 0x5707'0000'0000;

class ObjectStorm : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(OS_threads_support(), 1U);
        ASSERT_EQ(ZR_memm_cleanup(), 0);
        heap_trace heap(bookkeeping_kinds());
        table = &memory_table(heap);
        ASSERT_EQ(OS_mem_sync_cs_allocate(&manager), 1);
    }
    void TearDown() override
    {
        EXPECT_EQ(violations_in(*table), std::vector<std::string>{});
        EXPECT_EQ(ZR_memm_cleanup(), 0) << "a block was left behind";
        EXPECT_EQ(OS_mem_sync_cs_free(manager), 1);
    }

    // Makes one object of each kind that comes from the plain heap, uses it and frees it: nothing is shared
    // with another thread but the heap. Gives the number of failures.
    static long use_objects_of_ones_own()
    {
        long failures = 0;
        LPVOID section = nullptr, identifier = nullptr, handle = nullptr, event = nullptr;
        failures += OS_mem_sync_cs_allocate(&section) != 1;
        OS_sync_cs_enter(section);
        OS_sync_cs_leave(section);
        failures += OS_mem_sync_cs_free(section) != 1;
        failures += OS_mutex_ID_allocate(&identifier) != 0;
        failures += OS_mutex_open(identifier, nullptr, &handle) != 1 || handle != identifier;
        failures += OS_mutex_release(handle) != 1;
        failures += OS_mutex_ID_free(identifier) != 0;
        failures += OS_create_event(&event, 0, nullptr) != 1;
        failures += OS_set_event(event) != 1;
        failures += OS_wait_for_event(event) != 1;
        failures += OS_close_event(event) != 1;
        return failures;
    }
    static constexpr long OPERATIONS_OF_OBJECTS = 12;

    // What needs no lock goes on at any time.
    static long work_without_lock()
    {
        ZT_MD5_CONTEXT context;
        MD5Init(&context);
        MD5Update(&context, "abc", 3);
        MD5Final(&context);
        static constexpr BYTE digest_of_abc[] = {0x90, 0x01, 0x50, 0x98, 0x3c, 0xd2, 0x4f, 0xb0,
                                                 0xd6, 0x96, 0x3f, 0x7d, 0x28, 0xe1, 0x7f, 0x72};
        return (memcmp(context.digest, digest_of_abc, 16) != 0) +
               ((ZR_util_CRC_calc("123456789", 9) & 0xFFFFFFFF) != 0xCBF43926);
    }
    static constexpr long OPERATIONS_WITHOUT_LOCK = 4;

    LPVOID manager = nullptr;  // the lock of all calls that use the memory manager
    const ZT_MEMM_TABLE *table = nullptr;
};

TEST_F(ObjectStorm, FreesWhatEveryThreadMakesForItself)
{
    const long rounds =
        1 + storm_operations() / (OPERATIONS_OF_OBJECTS + OPERATIONS_WITHOUT_LOCK) / storm_threads();
    std::atomic<long> failures{0};
    crew threads(storm_threads());
    threads.start([&](unsigned) {
        for (long round = 0; round < rounds; ++round)
            failures += use_objects_of_ones_own() + work_without_lock();
    });
    threads.join();
    EXPECT_EQ(failures, 0);
    report_storm("objects made, used and freed while others work",
                 rounds * storm_threads() * (OPERATIONS_OF_OBJECTS + OPERATIONS_WITHOUT_LOCK), "operations");
}

// One thread's part in the storm of the memory manager: its blocks under tags of its own, between calls of
// all the others.
class client {
public:
    client(unsigned number, LPVOID manager) : number_(number), manager_(manager) {}

    // Gives the number of failures.
    long round()
    {
        failures_ = 0;
        const uint64_t tag = locked([&] { return ZR_memm_unique_tag_get("storm", __LINE__); });
        expect((tag & ZR_MEMM_UNIQUE_TAG_BIT) != 0 && tag != last_tag_);
        last_tag_ = tag;
        use_blocks(FIRST_TAG + number_);
        use_array(tag);
        use_section(tag);
        expect(locked([&] { return ZR_memm_free_all(tag); }) == BLOCKS_LEFT_UNDER_UNIQUE_TAG);
        return failures_;
    }
    static constexpr long OPERATIONS = 50;  // sections entered and left included

private:
    static constexpr LONG BLOCKS_LEFT_UNDER_UNIQUE_TAG = 1;

    template <typename Call> std::invoke_result_t<Call> locked(Call call) const
    {
        OS_sync_cs_enter(manager_);
        const auto result = call();
        OS_sync_cs_leave(manager_);
        return result;
    }
    void expect(bool holds) { failures_ += !holds; }

    // The contents are written outside the lock: a block that two owners got would show.
    void use_blocks(uint64_t tag)
    {
        const int mark = static_cast<int>(number_ % 251);
        auto *block = static_cast<BYTE *>(locked([&] { return ZR_memm_alloc(tag, 24, "storm", __LINE__); }));
        memset(block, mark, 24);
        block =
            static_cast<BYTE *>(locked([&] { return ZR_memm_realloc(tag, block, 48, "storm", __LINE__); }));
        expect(block[0] == mark && block[23] == mark);
        LPVOID lent = OS_alloc(8);
        expect(locked([&] { return ZR_memm_associate(tag, lent, 8); }) == lent);
        expect(locked([&] { return ZR_memm_flags(tag, lent); }) == ZR_MEMM_FLAG_RECORDED);
        expect(locked([&] { return ZR_memm_disassociate(tag, lent); }) == nullptr);
        OS_free(lent);
        expect(locked([&] { return ZR_memm_free(tag, block, "storm", __LINE__); }) == nullptr);
    }

    void use_array(uint64_t tag)
    {
        ZT_DT_ANY *array = nullptr;
        int elements[2] = {};
        expect(locked([&] { return ZR_array_ptr_alloc(tag, &array, 1, 0, nullptr); }) == 0);
        for (int &element : elements)
            expect(locked([&] { return ZR_array_ptr_add(array, &element, nullptr); }) == 0);
        LPVOID second = nullptr;
        expect(ZR_array_ptr_get(array, 1, &second) == 0 && second == &elements[1]);
        locked([&] { return ZR_array_ptr_delete(array); });
    }

    // The section's record is the one block that is left under the tag when it is released as a whole.
    void use_section(uint64_t tag)
    {
        LPVOID section = nullptr;
        expect(locked([&] { return OS_sync_cs_allocate(tag, &section); }) == 1);
        OS_sync_cs_enter(section);
        OS_sync_cs_leave(section);
        expect(locked([&] { return OS_sync_cs_free(tag, section); }) == 1);
        expect(locked([&] { return ZR_memm_alloc(tag, 1, "storm", __LINE__); }) != nullptr);
    }

    unsigned number_;
    LPVOID manager_;
    uint64_t last_tag_ = 0;
    long failures_ = 0;
};

TEST_F(ObjectStorm, LeavesTheMemoryManagersTableSoundBehindOneSection)
{
    const unsigned clients = storm_threads() - 1;
    const long rounds = 1 + storm_operations() / client::OPERATIONS / clients;
    std::atomic<long> failures{0};
    std::atomic<unsigned> still_at_work{clients};
    std::vector<std::string> violations;
    crew threads(clients + 1);
    threads.start([&](unsigned number) {
        if (number == clients) {  // looks on between the calls of the others
            while (still_at_work != 0 && violations.empty()) {
                OS_sync_cs_enter(manager);
                violations = violations_in(*table);
                OS_sync_cs_leave(manager);
                failures += use_objects_of_ones_own() + work_without_lock();
            }
            return;
        }
        client one(number, manager);
        for (long round = 0; round < rounds; ++round)
            failures += one.round();
        --still_at_work;
    });
    threads.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(violations, std::vector<std::string>{});
    report_storm("memory manager, arrays and ordinary sections behind one mem-sync section",
                 rounds * clients * client::OPERATIONS, "operations");
}

}  // namespace
