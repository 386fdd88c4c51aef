// PNG: a signature, then chunks of length, type, data and CRC-32. IHDR comes first and IEND last.

#include "byte_view.h"
#include "image_facts.h"

namespace {

constexpr uint64_t SIGNATURE_SIZE = 8;
constexpr uint64_t CHUNK_FRAME_SIZE = 12;  // length, type and CRC, four bytes each
constexpr uint32_t LONGEST_CHUNK = INT32_MAX;
constexpr uint64_t DEFLATE_BEST_RATIO = 1032;  // bytes out of one byte, by the format's own limits

struct chunk {
    uint64_t offset;  // of the frame
    byte_view type;
    byte_view data;
    uint64_t size() const { return CHUNK_FRAME_SIZE + data.size; }
    bool is(const CHAR *name) const { return type.matches(0, name, 4); }
};

bool is_letter(BYTE byte)
{
    return (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
}

bool has_valid_type(const chunk &found)
{
    for (uint64_t i = 0; i < 4; ++i)
        if (!is_letter(found.type.byte(i)))
            return false;
    return true;
}

bool has_valid_checksum(const byte_view &file, const chunk &found)
{
    const uint64_t crc = ZR_util_CRC_calc(found.type.data, 4 + found.data.size);
    return crc == file.dword(found.offset + 8 + found.data.size);
}

bool read_chunk(const byte_view &file, uint64_t offset, chunk &found, IMAGE_FACTS &facts)
{
    if (offset == file.size)
        return report_problem(facts, "truncated: the file ends without an IEND chunk");
    if (!file.holds(offset, CHUNK_FRAME_SIZE))
        return report_problem(facts, "truncated: the file ends inside a chunk's frame");
    const uint32_t length = file.dword(offset);
    found = {offset, file.part(offset + 4, 4), file.part(offset + 8, 0)};
    const auto place = static_cast<unsigned long long>(offset);
    if (!has_valid_type(found) || length > LONGEST_CHUNK) {
        OS_sprintf(facts.problem, "corrupt: no valid chunk at byte %llu", place);
        return false;
    }
    const CHAR *type = reinterpret_cast<const CHAR *>(found.type.data);
    if (!file.holds(offset, CHUNK_FRAME_SIZE + length)) {
        OS_sprintf(facts.problem, "truncated: the file ends inside its %.4s chunk at byte %llu", type, place);
        return false;
    }
    found.data = file.part(offset + 8, length);
    if (!has_valid_checksum(file, found)) {
        OS_sprintf(facts.problem, "corrupt: wrong checksum of its %.4s chunk at byte %llu", type, place);
        return false;
    }
    return true;
}

uint64_t samples_per_pixel(BYTE colour_type)
{
    switch (colour_type) {
    case 0:  // grey
    case 3:  // palette
        return 1;
    case 2:  // red, green, blue
        return 3;
    case 4:  // grey with alpha
        return 2;
    case 6:  // red, green, blue with alpha
        return 4;
    default:
        return 0;
    }
}

bool is_sample_size(BYTE bits)
{
    return bits == 1 || bits == 2 || bits == 4 || bits == 8 || bits == 16;
}

bool read_header(const chunk &header, uint64_t file_size, IMAGE_FACTS &facts)
{
    if (!header.is("IHDR") || header.data.size != 13)
        return report_problem(facts, "corrupt: it does not begin with an IHDR chunk of 13 bytes");
    const BYTE bits = header.data.byte(8);
    const uint64_t samples = samples_per_pixel(header.data.byte(9));
    if (!is_sample_size(bits) || samples == 0)
        return report_problem(facts, "corrupt: IHDR gives an unknown pixel format");
    return accept_size(facts, header.data.dword(0), header.data.dword(4), file_size,
                       DEFLATE_BEST_RATIO * 8 / (bits * samples));
}

void read_resolution(const chunk &found, IMAGE_FACTS &facts)
{
    constexpr BYTE per_metre = 1;
    if (found.data.size != 9 || found.data.byte(8) != per_metre)
        return;
    const uint64_t x = found.data.dword(0);
    const uint64_t y = found.data.dword(4);
    store_resolution(facts, {x, 1, y, 1, ZT_RES_UNIT_METER});
}

}  // namespace

const IMAGE_MODULE_IDENTITY image_module_identity = {IMAGE_MODULE_VERSION, "png"};

void image_module_read(const BYTE *data, uint64_t size, IMAGE_FACTS *facts)
{
    const byte_view file = {data, size, byte_order::big_endian};
    chunk found = {};
    uint64_t offset = SIGNATURE_SIZE;
    if (size < SIGNATURE_SIZE) {
        report_problem(*facts, "truncated: the file ends inside its signature");
        return;
    }
    if (!read_chunk(file, offset, found, *facts) || !read_header(found, size, *facts))
        return;
    bool has_image_data = false;
    while (!found.is("IEND")) {
        offset += found.size();
        if (!read_chunk(file, offset, found, *facts))
            return;
        if (found.is("pHYs"))
            read_resolution(found, *facts);
        has_image_data = has_image_data || found.is("IDAT");
    }
    if (!has_image_data)
        report_problem(*facts, "corrupt: it has no IDAT chunk");
}
