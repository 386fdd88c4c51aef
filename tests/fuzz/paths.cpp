// Joined paths and names of companion modules, in buffers without a byte to spare.

#include "foundation/memory.h"
#include "foundation/os.h"

#include "fuzz/target.h"

namespace {

void check_join(const std::string &directory, const std::string &name, UINT limit, bool in_place)
{
    const bool needs_separator = !directory.empty() && directory.back() != '/';
    const std::string joined = directory + (needs_separator ? "/" : "") + name;
    // What stands in the output before: something without a terminator up to its last byte, or the directory.
    std::string expected(std::min<size_t>(joined.size(), limit), '#');
    if (in_place && expected.size() < directory.size())
        expected.resize(directory.size(), '#');
    expected += '\0';
    if (in_place)
        expected.replace(0, directory.size() + 1, directory.c_str(), directory.size() + 1);
    guarded_bytes output(expected.data(), expected.size());
    guarded_bytes directory_bytes(directory.c_str(), directory.size() + 1);
    guarded_bytes name_bytes(name.c_str(), name.size() + 1);

    const LONG length = OS_sys_path_concat(in_place ? output.text() : directory_bytes.text(),
                                           name_bytes.text(), output.text(), limit);
    expected.replace(0, std::min<size_t>(joined.size(), limit), joined, 0, limit);
    if (joined.size() < limit)
        expected[joined.size()] = '\0';
    require_equal("the joined path", content(output), expected);
    require_equal("its length", static_cast<size_t>(length), strlen(expected.c_str()));
    require_equal("the count of blocks left in the memory manager", ZR_memm_cleanup(), 0);
}

void check_file_name(const std::string &base, UINT limit)
{
    constexpr size_t LONGEST_BASE = 245;
    const std::string name = "libQV" + base + "17.so";
    std::string expected(limit, '#');
    LONG expected_result = -1;
    if (base.size() <= LONGEST_BASE) {
        expected.assign(name, 0, limit);
        expected.resize(limit, '\0');
        expected_result = name.size() > limit ? -1 : static_cast<LONG>(name.size());
    }
    guarded_bytes base_bytes(base.c_str(), base.size() + 1);
    guarded_bytes output(limit);
    fill(output, std::string(limit, '#'));
    const LONG result = OS_sys_compfilename_create(base_bytes.text(), output.text(), limit);
    require_equal("the result", result, expected_result);
    require_equal("the file name", content(output), expected);
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    byte_source source(data, size);
    const UINT limit = source.take<uint8_t>() % 8 == 0 ? UINT32_MAX : source.take<uint16_t>() % 600;
    const auto flags = source.take<uint8_t>();
    const std::string directory = source.take_text(source.take<uint8_t>());
    const std::string name = source.take_text(300);
    check_join(directory, name, limit, flags % 2 != 0);
    check_file_name(name, limit % 600);
    return 0;
}
