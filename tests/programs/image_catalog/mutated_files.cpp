#include "mutated_files.h"

#include "bad_files.h"
#include "catalog_run.h"
#include "image_bytes.h"
#include "support/files.h"

#include <algorithm>

mutated_files::mutated_files(uint32_t seed) : state_(seed)
{
    for (const std::string &sample : good_samples())
        bases_.push_back(content_of(sample));
    for (const bad_file &file : all_bad_files())
        bases_.push_back(file.bytes);
    for (const byte_order order : {byte_order::LITTLE, byte_order::BIG})
        bases_.push_back(big_tiff_image(order, {ratio(order, 282, 300, 1)}));
}

size_t mutated_files::below(size_t limit)
{
    state_ = state_ * 6364136223846793005u + 1442695040888963407u;
    return (state_ >> 33) % limit;
}

// A byte, or some that make a number large, negative or small.
void mutated_files::change(std::string &bytes)
{
    static const std::string extremes[] = {"\xFF\xFF\xFF\xFF",  "\x7F\xFF\xFF\xFF", "\x80", "\xFF", "\x01",
                                           std::string(4, '\0')};
    const size_t offset = below(below(2) == 0 ? std::min<size_t>(bytes.size(), 64) : bytes.size());
    const std::string value =
        below(2) == 0 ? std::string(1, static_cast<char>(below(256))) : extremes[below(6)];
    for (size_t i = 0; i < value.size() && offset + i < bytes.size(); ++i)
        bytes[offset + i] = value[i];
}

std::string mutated_files::next()
{
    std::string bytes = bases_[count_++ % bases_.size()];
    for (size_t changes = 1 + below(4); changes > 0; --changes)
        change(bytes);
    if (below(4) == 0)
        bytes.resize(1 + below(bytes.size()));
    return bytes;
}
