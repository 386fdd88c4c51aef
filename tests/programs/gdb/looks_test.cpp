// What gdb shows of a host, the same on each thing that one debugs: a process started or attached to, a core
// written by gdb or by the kernel. Expected is what the host did.

#include "gdb_fixture.h"
#include "host_targets.h"
#include "support/files.h"

#include <algorithm>

namespace {

constexpr uint64_t SMALL_TAG = 5;

const strings COMMANDS = {
    "frame function main",  // where the host's own `heap` is in scope; no command leaves it
    "memm",
    "memm 5",
    "memm unique_tag",
    "memm 42",
    "memm 43",
    "memm check",
    "memm find some_block",
    "memm find some_block + 99",
    "memm find some_block + 100",
    "memm find &heap",
    "memm find 0",
    "memm find numbers",
    "memm array numbers",
    "memm array emptied_array",
    "memm array junk",
    "memm array 8",
    "memm section section",
    "memm section free_section",
    "memm section identifier",
    "memm section junk",
    "memm event unset_event",
    "memm event set_event",
    "memm event 8",
    "memm guid guid",
    "output numbers",
    "output $qv_array(numbers)",
    "output $qv_array(numbers).capacity",
    "output $qv_array(junk)",
    "output date",
    "output leap_day",
    "output no_date",
    "output moment",
    "output guid",
    "output heap",
    "output first_day",
};

class Looks : public testing::TestWithParam<target> {
protected:
    void SetUp() override
    {
        SKIP_WITHOUT_GDB();
        seen_ = &look_at(GetParam(), COMMANDS);
        if (!seen_->reason_to_skip.empty())
            GTEST_SKIP() << seen_->reason_to_skip;
    }

    std::string answer(const std::string &command) const { return seen_->answers.to(command); }
    strings lines(const std::string &command) const { return seen_->answers.lines_to(command); }
    const host_facts &facts() const { return *seen_->facts; }
    // How a thread is named at the end of its description.
    std::string lwp(const std::string &thread) const
    {
        return "(LWP " + std::to_string(facts().number(thread)) + ")";
    }

private:
    const look *seen_ = nullptr;
};

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

}  // namespace

TEST_P(Looks, ListsTagsWithTheirBlocksAndBytesMostBytesFirst)
{
    // 100 + 200 ... + 3000; 100, 2500 and 0; two array records of 72 and one vector of 8 slots; one; none any
    // more.
    EXPECT_EQ(answer("memm"), "blocks   bytes  tag\n"
                              "    30  46,500  0x10000000\n"
                              "     3   2,600  0x5\n"
                              "     3     208  0x10000001\n"
                              "     1      64  0x25\n"
                              "     0       0  0x2a\n"
                              "5 tags, 37 blocks of 49,372 bytes; 1 unique tag drawn so far\n");
}

TEST_P(Looks, ListsTheBlocksOfATagLargestFirst)
{
    const auto &blocks = facts().blocks_of(SMALL_TAG);
    EXPECT_EQ(lines("memm 5"),
              (strings{"bytes  block", "2,500  " + as_hexadecimal(blocks.at(2500)),
                       "  100  " + as_hexadecimal(blocks.at(100)), "    0  " + as_hexadecimal(blocks.at(0)),
                       "tag 0x5: 3 blocks of 2,600 bytes"}));
}

TEST_P(Looks, ListsEveryBlockOfATagWithSeveralNodes)
{
    const strings shown = lines("memm unique_tag");
    const auto &blocks = facts().blocks_of(0x10000000);
    ASSERT_EQ(shown.size(), blocks.size() + 2);
    size_t line = 1;
    for (auto block = blocks.rbegin(); block != blocks.rend(); ++block, ++line) {
        std::string size = words_of(shown[line])[0];
        size.erase(std::remove(size.begin(), size.end(), ','), size.end());
        EXPECT_EQ(size, std::to_string(block->first));
        EXPECT_EQ(words_of(shown[line])[1], as_hexadecimal(block->second));
    }
}

TEST_P(Looks, TellATagWithoutBlocksFromOneWithoutARecord)
{
    EXPECT_EQ(answer("memm 42"), "tag 0x2a: 0 blocks of 0 bytes\n");
    EXPECT_EQ(answer("memm 43"), "tag 0x2b has no record\n");
}

TEST_P(Looks, FindTheOwnerOfAnAddress)
{
    const uint64_t block = facts().blocks_of(SMALL_TAG).at(100);
    const std::string of_block = "block " + as_hexadecimal(block) + " of 100 bytes, tag 0x5\n";
    EXPECT_EQ(answer("memm find some_block"), as_hexadecimal(block) + ": " + of_block);
    EXPECT_EQ(answer("memm find some_block + 99"), as_hexadecimal(block + 99) + ": byte 99 of " + of_block);
    EXPECT_EQ(answer("memm find some_block + 100"),
              as_hexadecimal(block + 100) + ": no tag owns it; 0 bytes behind the end of " + of_block);
}

TEST_P(Looks, FindNoOwnerOfWhatIsNoBlock)
{
    EXPECT_EQ(without_addresses(answer("memm find &heap")), "ADDRESS: no tag owns it\n");
    EXPECT_EQ(answer("memm find 0"), "0x0: no tag owns it\n");
}

TEST_P(Looks, FindNothingAmissInASoundTable)
{
    EXPECT_EQ(answer("memm check"), "5 tags, 37 blocks of 49,372 bytes: nothing amiss\n");
}

TEST_P(Looks, ShowAnArrayInTheOrderOfItsElements)
{
    EXPECT_EQ(without_addresses(answer("memm array numbers")),
              "ADDRESS: array of 5 elements in 8 slots, sorted by by_value, tag 0x10000001\n"
              "  [0] 0x10\n  [1] 0x20\n  [2] 0x30\n  [3] 0x40\n  [4] 0x50\n");
    EXPECT_EQ(without_addresses(answer("memm array emptied_array")),
              "ADDRESS: array of 0 elements in 0 slots, in insertion order, tag 0x10000001\n");
}

TEST_P(Looks, SayWhatIsNoArray)
{
    EXPECT_EQ(without_addresses(answer("memm array junk")),
              "no array: the record at ADDRESS lacks the size and the magic word of one\n");
    EXPECT_EQ(answer("memm array 8"), "no array: 0x8 cannot be read\n");
    EXPECT_TRUE(contains(answer("output $qv_array(junk)"), "no array: ")) << answer("output $qv_array(junk)");
}

TEST_P(Looks, ShowWhoHasASectionHowOftenAndWhoWaits)
{
    const strings shown = lines("memm section section");
    ASSERT_EQ(shown.size(), 3U);
    EXPECT_EQ(without_addresses(shown[0]), "ADDRESS: section or mutex identifier, threaded mode");
    EXPECT_TRUE(contains(shown[1], "  owner    thread ") &&
                contains(shown[1], lwp("keeper") + ", entered 2 times"))
        << shown[1];
    EXPECT_TRUE(contains(shown[2], "  waiters  thread ") && contains(shown[2], lwp("claimer"))) << shown[2];
}

TEST_P(Looks, ShowWhatSectionIsFreeAndWhichIdentifierIsTaken)
{
    const strings free_section = lines("memm section free_section"), taken = lines("memm section identifier");
    ASSERT_EQ(free_section.size(), 3U);
    EXPECT_EQ(free_section[1], "  owner    none, it is free");
    EXPECT_EQ(free_section[2], "  waiters  none");
    ASSERT_EQ(taken.size(), 3U);
    EXPECT_TRUE(contains(taken[1], lwp("main") + ", entered 1 time")) << taken[1];
}

TEST_P(Looks, ShowTheStateOfAnEventAndWhoWaits)
{
    const strings shown = lines("memm event unset_event");
    ASSERT_EQ(shown.size(), 3U);
    EXPECT_EQ(without_addresses(shown[0]), "ADDRESS: event, threaded mode");
    EXPECT_EQ(shown[1], "  state    not signalled");
    EXPECT_TRUE(contains(shown[2], "  waiters  2 threads: ") && contains(shown[2], lwp("keeper")) &&
                contains(shown[2], lwp("listener")))
        << shown[2];
    EXPECT_EQ(lines("memm event set_event").at(1), "  state    signalled (7)");
}

TEST_P(Looks, SayWhatIsNoSectionAndNoEvent)
{
    EXPECT_EQ(lines("memm section junk").at(1),
              "  state  no section or mutex identifier: freed, never made, or overwritten");
    EXPECT_EQ(answer("memm event 8"), "0x8 cannot be read\n");
}

TEST_P(Looks, PrintArraysByTheirHandlesAndRecords)
{
    EXPECT_EQ(without_addresses(answer("output numbers")),
              "ADDRESS (array of 5 elements in 8 slots, sorted by by_value, tag 0x10000001)\n");
    EXPECT_EQ(answer("output $qv_array(numbers)"),
              "array of 5 elements in 8 slots, sorted by by_value, tag 0x10000001 = "
              "{0x10, 0x20, 0x30, 0x40, 0x50}\n");
    EXPECT_EQ(answer("output $qv_array(numbers).capacity"), "8\n");
}

TEST_P(Looks, PrintDatesAndSayWhichDoNotExist)
{
    EXPECT_EQ(answer("output date"), "2026-11-21\n");
    EXPECT_EQ(answer("output leap_day"), "2024-02-29\n");
    EXPECT_EQ(answer("output no_date"), "2026-02-29 (no such date)\n");
    EXPECT_EQ(answer("output moment"), "1999-12-31 23:59:58\n");
}

TEST_P(Looks, PrintGuidsAsTheirText)
{
    EXPECT_EQ(answer("output guid"), "0001fe102030405060708090a0b0c0ff\n");
    EXPECT_EQ(answer("memm guid guid"), "0001fe102030405060708090a0b0c0ff\n");
}

TEST_P(Looks, LeaveTheHostsOwnNamesToTheHost)
{
    EXPECT_EQ(answer("output heap"), "{top = 7}\n");
    EXPECT_EQ(answer("output first_day"), "{day = 1}\n");
}

INSTANTIATE_TEST_SUITE_P(Of, Looks,
                         testing::Values(target::STARTED, target::ATTACHED, target::CORE_OF_GDB,
                                         target::CORE_OF_KERNEL),
                         [](const auto &way) {
                             switch (way.param) {
                             case target::STARTED:
                                 return "AStartedProcess";
                             case target::ATTACHED:
                                 return "AnAttachedProcess";
                             case target::CORE_OF_GDB:
                                 return "ACoreOfGdb";
                             default:
                                 return "ACoreOfTheKernel";
                             }
                         });
