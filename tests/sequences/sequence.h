// Sequences of calls against simple models. A subject performs each operation on the library and on its model
// and says what differs. The operations come from a random generator or from the bytes of a fuzzer, so a
// sequence that fails, once shrunk, can be kept as one of the fuzzer's files.
#pragma once

#include "support/heap_trace.h"

#include <stddef.h>
#include <stdint.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

// One call; each subject reads the numbers in its own way. Any value is good, so that nothing is ever
// refused.
struct operation {
    uint8_t what;      // which call; low values make the subject hold more
    uint8_t refusal;   // below 24: one of the next allocations is refused
    uint16_t which;    // object
    uint16_t amount;   // size, index, element
    uint16_t variant;  // anything else
};
static_assert(sizeof(operation) == 8, "the files of tests/fuzz/corpus hold operations");

using operations = std::vector<operation>;

class subject {
public:
    virtual ~subject() = default;
    virtual void perform(const operation &next) = 0;
    // Give everything back; nothing may be left.
    virtual void finish() = 0;

    // The first difference between library and model, in words; empty while they agree.
    const std::string &difference() const { return difference_; }

    // The calls in words, if they are wanted before they are performed.
    bool tells = false;
    std::vector<std::string> told;

protected:
    template <typename Actual, typename Expected>
    void expect_equal(const char *what, const Actual &actual, const Expected &expected)
    {
        if (!(actual == expected))
            report(words(what, " is ", shown(actual), ", expected ", shown(expected)));
    }

    void expect(bool holds, const char *claim)
    {
        if (!holds)
            report(words("not so: ", claim));
    }

    void report(const std::string &difference)
    {
        if (difference_.empty())
            difference_ = difference;
    }

    template <typename... Parts> void tell(const Parts &...parts)
    {
        if (tells)
            told.push_back(words(parts...));
    }

private:
    template <typename Value> static std::string shown(const Value &value) { return words(value); }
    static std::string shown(const std::vector<std::string> &list);
    static std::string shown(const std::vector<uint64_t> &list);

    std::string difference_;
};

using make_subject = std::unique_ptr<subject>();

// The subjects. Not two at a time: those that follow the heap share its trace.
make_subject array_calls;
make_subject checksum_calls;
make_subject date_calls;
make_subject memory_calls;
make_subject object_calls;

// What differed, and the calls that led there; nothing when library and model agreed to the end.
struct disagreement {
    std::string difference;
    std::vector<std::string> calls;
};
std::optional<disagreement> run(make_subject make, const operations &list, bool tells = false);

// As many operations as fit into the bytes.
operations decoded(const uint8_t *data, size_t size);

// Phases of growth and of decline in turn, so that a subject gets to hold much and loses it again.
operations random_operations(size_t count, uint64_t seed);

// A part of the list that still fails and from which no single operation can be left out.
operations shrunk(make_subject make, operations list);
