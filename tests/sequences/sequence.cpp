#include "sequences/sequence.h"

#include <string.h>

#include <algorithm>
#include <random>
#include <utility>

std::string subject::shown(const std::vector<std::string> &list)
{
    std::string text = "[";
    for (const std::string &each : list)
        text += (text.size() > 1 ? ", " : "") + each;
    return text + "]";
}

std::string subject::shown(const std::vector<uint64_t> &list)
{
    std::vector<std::string> texts;
    for (const uint64_t each : list)
        texts.push_back(std::to_string(each));
    return shown(texts);
}

std::optional<disagreement> run(make_subject make, const operations &list, bool tells)
{
    const std::unique_ptr<subject> tested = make();
    tested->tells = tells;
    for (const operation &each : list) {
        tested->perform(each);
        if (!tested->difference().empty())
            break;
    }
    if (tested->difference().empty())
        tested->finish();
    if (tested->difference().empty())
        return std::nullopt;
    return disagreement{tested->difference(), tested->told};
}

operations decoded(const uint8_t *data, size_t size)
{
    operations list(size / sizeof(operation));
    if (!list.empty())
        memcpy(list.data(), data, list.size() * sizeof(operation));
    return list;
}

operations random_operations(size_t count, uint64_t seed)
{
    constexpr size_t PHASE = 250;
    std::mt19937_64 random(seed);
    operations list(count);
    for (size_t i = 0; i < count; ++i) {
        const uint64_t bits = random();
        memcpy(&list[i], &bits, sizeof bits);
        const bool grows = i / PHASE % 2 == 0;
        if (grows && random() % 3 == 0)
            list[i].what = 0;
    }
    return list;
}

namespace {

// Whether some part of `chunk` operations could be left out.
bool leave_out(make_subject make, operations &list, size_t chunk)
{
    bool has_shrunk = false;
    for (size_t start = 0; start < list.size();) {
        operations rest = list;
        const auto first = rest.begin() + static_cast<ptrdiff_t>(start);
        rest.erase(first, first + static_cast<ptrdiff_t>(std::min(chunk, list.size() - start)));
        if (run(make, rest)) {
            list = std::move(rest);
            has_shrunk = true;
        } else {
            start += chunk;
        }
    }
    return has_shrunk;
}

// Refused allocations that the failure does not need are granted.
void grant_allocations(make_subject make, operations &list)
{
    for (operation &each : list) {
        const uint8_t refusal = std::exchange(each.refusal, 255);
        if (!run(make, list))
            each.refusal = refusal;
    }
}

}  // namespace

operations shrunk(make_subject make, operations list)
{
    for (size_t chunk = list.size(); chunk != 0; chunk /= 2)
        leave_out(make, list, chunk);
    grant_allocations(make, list);
    while (leave_out(make, list, 1)) {
        // What went may have been all that another one was needed for.
    }
    return list;
}
