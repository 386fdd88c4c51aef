// Random sequences of calls against the models. QV_SEQUENCE_CALLS sets how many calls each subject is given,
// QV_SEQUENCE_SEED which ones.

#include "sequences/sequence.h"

#include <gtest/gtest.h>

#include <stdlib.h>

#include <fstream>

namespace {

constexpr size_t CALLS_PER_SEQUENCE = 1000;

uint64_t setting(const char *variable, uint64_t otherwise)
{
    const char *text = getenv(variable);
    return text != nullptr ? strtoull(text, nullptr, 10) : otherwise;
}

std::string lines(const std::vector<std::string> &list)
{
    std::string text;
    for (const std::string &each : list)
        text += "\n    " + each;
    return text;
}

void keep(const operations &list, const std::string &file)
{
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char *>(list.data()),
               static_cast<std::streamsize>(list.size() * sizeof(operation)));
}

// Shrink a sequence that failed, and say what it does and how to keep it.
void explain(make_subject make, const std::string &name, const operations &list)
{
    const operations shortest = shrunk(make, list);
    const std::optional<disagreement> result = run(make, shortest, true);
    ASSERT_TRUE(result) << "a shrunk sequence fails as the whole did";
    const std::string file = "failing_" + name;
    keep(shortest, file);
    FAIL() << result->difference << ", after these calls:" << lines(result->calls)
           << "\nTo keep them as a test, copy " << file << " to tests/fuzz/corpus/" << name;
}

void expect_agreement(make_subject make, const std::string &name, size_t usual_calls)
{
    const size_t calls = setting("QV_SEQUENCE_CALLS", usual_calls);
    const uint64_t seed = setting("QV_SEQUENCE_SEED", 17);
    for (size_t done = 0; done < calls; done += CALLS_PER_SEQUENCE) {
        const operations list = random_operations(CALLS_PER_SEQUENCE, seed + done);
        if (run(make, list))
            return explain(make, name, list);
    }
}

}  // namespace

TEST(Sequences, MemoryCallsAgreeWithTheModel)
{
    expect_agreement(memory_calls, "memory_calls", 30000);
}

TEST(Sequences, ArrayCallsAgreeWithTheModel)
{
    expect_agreement(array_calls, "array_calls", 50000);
}

TEST(Sequences, ObjectsOfEmulatedModeAgreeWithTheTableOfTheirStates)
{
    expect_agreement(object_calls, "object_calls", 50000);
}

TEST(Sequences, ChecksumsInPiecesAgreeWithIndependentOnes)
{
    expect_agreement(checksum_calls, "checksum_calls", 100000);
}

TEST(Sequences, DatesAgreeWithAnIndependentCalendar)
{
    expect_agreement(date_calls, "date_calls", 200000);
}
