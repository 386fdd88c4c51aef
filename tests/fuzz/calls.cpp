// A sequence of calls on one of the subjects of tests/sequences, which FUZZED_SUBJECT names.

#include "fuzz/target.h"
#include "sequences/sequence.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const operations list = decoded(data, size);
    if (!run(FUZZED_SUBJECT, list))
        return 0;
    const std::optional<disagreement> result = run(FUZZED_SUBJECT, list, true);
    for (const std::string &call : result->calls)
        std::cerr << "    " << call << '\n';
    stop_at_difference(result->difference);
}
