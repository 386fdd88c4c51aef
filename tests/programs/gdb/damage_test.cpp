// A table that the program has damaged: every walk ends, and says in words what it found.

#include "gdb_fixture.h"

namespace {

struct damage {
    const char *name;
    const char *command;  // $table is the table's address
    const char *finding;  // of `memm check`, as without_addresses leaves it
};

const damage DAMAGES[] = {
    {"CircleOfNodes", "set var $table->buckets[0].first_node.next->next = $table->buckets[0].first_node.next",
     "nodes of tag 0x10000000: the element at ADDRESS leads to ADDRESS, which is in a chain already; "
     "whatever would follow is left out"},
    {"CircleOfRecords", "set var $table->buckets[5].next->next = &$table->buckets[5]",
     "records of bucket 5: the element at ADDRESS leads to ADDRESS, which is in a chain already; "
     "whatever would follow is left out"},
    {"LinkToNowhere", "set var $table->buckets[0].first_node.next->next = 16",
     "nodes of tag 0x10000000: the element at ADDRESS leads to 0x10, which cannot be read; "
     "whatever follows is lost"},
    {"LinkToSomethingElse", "set var $table->buckets[5].next = &junk",
     "records of bucket 5: what lies at ADDRESS is no such element; whatever follows is left out"},
    {"WrongLinkBack", "set var $table->buckets[0].first_node.next->previous = 0",
     "nodes of tag 0x10000000: the link back of the element at ADDRESS is 0x0, where ADDRESS belongs"},
    {"TooHighACount", "set var $table->buckets[5].first_node.count = 9",
     "nodes of tag 0x5: the node at ADDRESS counts 9 blocks and has 3: it is overwritten"},
    {"TooLowACount", "set var $table->buckets[5].first_node.count = 2",
     "nodes of tag 0x5: the node at ADDRESS counts 2 blocks and has 3; null was given to "
     "ZR_memm_disassociate, or it is overwritten"},
    {"WrongFlags", "set var $table->buckets[5].first_node.slots[1].flags = 7",
     "nodes of tag 0x5: slot 1 of the node at ADDRESS has flags 0x7, where 2 belongs"},
    {"LeftoverSize", "set var $table->buckets[5].first_node.slots[12].size = 8",
     "nodes of tag 0x5: slot 12 of the node at ADDRESS is vacant and has a size, 8"},
    {"WrongBucket", "set var $table->buckets[5].next->tag = 38",
     "records of bucket 5: the record at ADDRESS has tag 0x26, whose bucket is 6"},
    {"SecondRecordOfATag", "set var $table->buckets[5].next->tag = 5",
     "records of bucket 5: tag 0x5 has a second record at ADDRESS"},
    {"BlocksInAVacantRecord", "set var $table->buckets[5].tag = 0",
     "vacant record of bucket 5: it has 3 blocks, which no tag can reach"},
    {"BlockRecordedTwice",
     "set var $table->buckets[5].first_node.slots[0].block = "
     "$table->buckets[0].first_node.slots[0].block",
     "block ADDRESS is recorded twice: under tag 0x5 (100 bytes) and under tag 0x10000000 (100 bytes)"},
    {"BlockThatReachesIntoAnother", "set var $table->buckets[5].first_node.slots[0].size = 1000000",
     "block ADDRESS of tag 0x5 is recorded as 1000000 bytes, and so reaches into block ADDRESS of tag 0x"},
};

class DamagedTable : public testing::TestWithParam<damage> {
protected:
    void SetUp() override { SKIP_WITHOUT_GDB(); }

    static gdb_answers ask(const strings &commands)
    {
        const scratch_directory scratch;
        return ask_gdb(host_arguments(scratch.file("facts")), host_commands(commands));
    }
};

}  // namespace

TEST_P(DamagedTable, IsDescribedInWords)
{
    const gdb_answers answers = ask(
        {"set var $table = &'dt_types.cpp'::heap", GetParam().command, "memm check", "memm", "memm find 1"});
    EXPECT_EQ(answers.to(GetParam().command), "") << "the table could not be changed";
    EXPECT_NE(without_addresses(answers.to("memm check")).find(GetParam().finding), std::string::npos)
        << answers.to("memm check");
    EXPECT_NE(answers.to("memm").find(" drawn so far\n"), std::string::npos) << answers.to("memm");
    EXPECT_NE(answers.to("memm find 1").find("0x1: no tag owns it"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(With, DamagedTable, testing::ValuesIn(DAMAGES),
                         [](const auto &damaged) { return std::string(damaged.param.name); });
