#include "tiff_directory.h"

namespace {

constexpr WORD TYPE_SHORT = 3;
constexpr WORD TYPE_LONG = 4;
constexpr WORD TYPE_RATIONAL = 5;
constexpr uint64_t ENTRY_SIZE = 12;

// 0 for a type that nobody has defined.
uint64_t size_of_type(WORD type)
{
    // byte, text, 16 and 32 bits, rational, the same signed, float, double, directory
    constexpr BYTE sizes[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4};
    return type < sizeof sizes ? sizes[type] : 0;
}

tiff_field read_field(const byte_view &data, uint64_t entry)
{
    tiff_field field = {data, data.word(entry + 2), data.dword(entry + 4), entry + 8, true};
    field.is_inline = field.size() <= 4;
    if (!field.is_inline)
        field.value_offset = data.dword(entry + 8);
    return field;
}

bool has_values_inside(const tiff_field &field)
{
    return field.data.holds(field.value_offset, field.size());
}

bool report_outside(WORD tag, IMAGE_FACTS &facts)
{
    OS_sprintf(facts.problem, "truncated or corrupt: its field %u points outside the file", tag);
    return false;
}

bool read_rational(const tiff_directory &directory, WORD tag, bool &is_given, uint64_t &numerator,
                   uint64_t &denominator, IMAGE_FACTS &facts)
{
    tiff_field field = {};
    if (!tiff_find_field(directory, tag, field, facts))
        return false;
    if (!field.is_present())
        return true;
    if (field.type != TYPE_RATIONAL) {
        OS_sprintf(facts.problem, "corrupt: its field %u is no ratio", tag);
        return false;
    }
    numerator = field.data.dword(field.value_offset);
    denominator = field.data.dword(field.value_offset + 4);
    is_given = true;
    return true;
}

// A file without a unit counts per inch.
bool read_unit(const tiff_directory &directory, uint64_t &unit, IMAGE_FACTS &facts)
{
    constexpr uint64_t unit_inch = 2;
    constexpr uint64_t unit_centimetre = 3;
    tiff_field field = {};
    if (!tiff_find_field(directory, TIFF_TAG_RESOLUTION_UNIT, field, facts))
        return false;
    bool ok = true;
    const uint64_t code = field.is_present() ? tiff_whole_number(field, 0, ok) : unit_inch;
    if (!ok)
        return report_problem(facts, "corrupt: its resolution unit is no number");
    unit = code == unit_inch ? ZT_RES_UNIT_INCH : code == unit_centimetre ? ZT_RES_UNIT_CENTIMETER : 0;
    return true;
}

}  // namespace

uint64_t tiff_field::size() const
{
    return count * size_of_type(type);
}

bool tiff_open(const byte_view &bytes, byte_view &data, uint64_t &first, IMAGE_FACTS &facts)
{
    const bool is_big_endian = bytes.matches(0, "MM", 2);
    data = {bytes.data, bytes.size, is_big_endian ? byte_order::big_endian : byte_order::little_endian};
    if (!data.holds(0, 8))
        return report_problem(facts, "truncated: the file ends inside its header");
    if (!is_big_endian && !bytes.matches(0, "II", 2))
        return report_problem(facts, "corrupt: unknown byte order");
    if (data.word(2) == 43)
        return report_problem(facts, "TIFF with 64-bit offsets is not supported");
    if (data.word(2) != 42)
        return report_problem(facts, "corrupt: no TIFF header");
    first = data.dword(4);
    if (first == 0)
        return report_problem(facts, "corrupt: it has no directory");
    return true;
}

bool tiff_read_directory(const byte_view &data, uint64_t offset, tiff_directory &directory,
                         IMAGE_FACTS &facts)
{
    const auto place = static_cast<unsigned long long>(offset);
    directory = {data, offset, data.word(offset), 0};
    if (!data.holds(offset, 2) || !data.holds(offset, directory.size())) {
        OS_sprintf(facts.problem, "truncated or corrupt: its directory at byte %llu lies outside the file",
                   place);
        return false;
    }
    if (directory.entry_count == 0) {
        OS_sprintf(facts.problem, "corrupt: its directory at byte %llu is empty", place);
        return false;
    }
    directory.next_offset = data.dword(offset + 2 + ENTRY_SIZE * directory.entry_count);
    return true;
}

bool tiff_find_field(const tiff_directory &directory, WORD tag, tiff_field &field, IMAGE_FACTS &facts)
{
    const byte_view &data = directory.data;
    field = {};
    uint64_t entry = directory.offset + 2;
    const uint64_t end = entry + ENTRY_SIZE * directory.entry_count;
    while (entry < end && data.word(entry) != tag)
        entry += ENTRY_SIZE;
    if (entry == end)
        return true;

    const tiff_field found = read_field(data, entry);
    if (found.size() == 0) {
        OS_sprintf(facts.problem, "corrupt: its field %u has no values", tag);
        return false;
    }
    if (!has_values_inside(found))
        return report_outside(tag, facts);
    field = found;
    return true;
}

bool tiff_check_fields(const tiff_directory &directory, IMAGE_FACTS &facts)
{
    for (uint64_t i = 0; i < directory.entry_count; ++i) {
        const uint64_t entry = directory.offset + 2 + ENTRY_SIZE * i;
        if (!has_values_inside(read_field(directory.data, entry)))
            return report_outside(directory.data.word(entry), facts);
    }
    return true;
}

uint64_t tiff_whole_number(const tiff_field &field, uint64_t index, bool &ok)
{
    if (field.type == TYPE_SHORT)
        return field.data.word(field.value_offset + 2 * index);
    if (field.type == TYPE_LONG)
        return field.data.dword(field.value_offset + 4 * index);
    ok = false;
    return 0;
}

bool tiff_read_resolution(const tiff_directory &directory, bool &is_given, IMAGE_FACTS &facts)
{
    ZT_RESOLUTION resolution = {};
    is_given = false;
    if (!read_rational(directory, TIFF_TAG_X_RESOLUTION, is_given, resolution.x_numerator,
                       resolution.x_denominator, facts) ||
        !read_rational(directory, TIFF_TAG_Y_RESOLUTION, is_given, resolution.y_numerator,
                       resolution.y_denominator, facts) ||
        !read_unit(directory, resolution.unit, facts))
        return false;
    if (is_given)
        store_resolution(facts, resolution);
    return true;
}
