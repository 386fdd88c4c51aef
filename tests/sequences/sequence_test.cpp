// How sequences are shrunk and told, on a subject that has a known fault.

#include "sequences/sequence.h"

#include <gtest/gtest.h>

#include <string.h>

namespace {

// Differs as soon as a 7 has followed a 200, whatever stands between them.
class faulty_subject : public subject {
public:
    void perform(const operation &next) override
    {
        tell("call ", unsigned{next.what});
        if (next.what == 200)
            has_seen_200_ = true;
        else if (next.what == 7 && has_seen_200_)
            expect_equal("the sum", 1, 2);
    }

    void finish() override {}

private:
    bool has_seen_200_ = false;
};

std::unique_ptr<subject> make_faulty()
{
    return std::make_unique<faulty_subject>();
}

// Differs at the end, when five operations or more were performed.
class unfinished_subject : public subject {
public:
    void perform(const operation &) override { ++performed_; }
    void finish() override { expect(performed_ < 5, "fewer than five operations"); }

private:
    int performed_ = 0;
};

std::unique_ptr<subject> make_unfinished()
{
    return std::make_unique<unfinished_subject>();
}

}  // namespace

TEST(Sequence, AFailingOneShrinksToTheCallsThatMatter)
{
    operations list = random_operations(1000, 1);
    list[300].what = 200;
    list[700].what = 7;
    const operations shortest = shrunk(make_faulty, list);
    const auto result = run(make_faulty, shortest, true);
    ASSERT_TRUE(result);
    EXPECT_EQ(result->calls, (std::vector<std::string>{"call 200", "call 7"}));
    EXPECT_EQ(result->difference, "the sum is 1, expected 2");
}

TEST(Sequence, AFailureAtTheEndShrinksToo)
{
    EXPECT_EQ(shrunk(make_unfinished, random_operations(100, 1)).size(), 5u);
}

TEST(Sequence, OneThatAgreesHasNothingToTell)
{
    EXPECT_FALSE(run(make_faulty, {{7, 0, 0, 0, 0}, {200, 0, 0, 0, 0}}));
}

TEST(Sequence, BytesAreReadAsWholeOperations)
{
    const uint8_t bytes[] = {1, 2, 3, 0, 4, 0, 5, 0, 9, 9, 9};
    const operations list = decoded(bytes, sizeof bytes);
    ASSERT_EQ(list.size(), 1u);
    EXPECT_EQ(list[0].what, 1);
    EXPECT_EQ(list[0].refusal, 2);
    EXPECT_EQ(list[0].which, 3);
    EXPECT_EQ(list[0].amount, 4);
    EXPECT_EQ(list[0].variant, 5);
}

TEST(Sequence, TheSameSeedGivesTheSameOperations)
{
    const operations list = random_operations(1000, 5);
    const operations again = random_operations(1000, 5);
    const operations other = random_operations(1000, 6);
    const size_t bytes = list.size() * sizeof(operation);
    EXPECT_EQ(memcmp(list.data(), again.data(), bytes), 0);
    EXPECT_NE(memcmp(list.data(), other.data(), bytes), 0);
}
