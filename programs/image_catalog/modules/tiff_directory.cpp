#include "tiff_directory.h"

namespace {

constexpr WORD TYPE_BYTE = 1;
constexpr WORD TYPE_SHORT = 3;
constexpr WORD TYPE_LONG = 4;
constexpr WORD TYPE_RATIONAL = 5;
constexpr WORD TYPE_SIGNED_BYTE = 6;
constexpr WORD TYPE_SIGNED_SHORT = 8;
constexpr WORD TYPE_SIGNED_LONG = 9;
constexpr WORD TYPE_LONG8 = 16;
constexpr WORD TYPE_SIGNED_LONG8 = 17;

constexpr WORD VERSION_CLASSIC = 42;
constexpr WORD VERSION_BIG = 43;
constexpr tiff_layout CLASSIC = {2, 12, 4};
constexpr tiff_layout BIG = {8, 20, 8};

// 0 for a type that nobody has defined.
uint64_t size_of_type(WORD type)
{
    // byte, text, 16 and 32 bits, rational, the same signed, float, double, directory; 64 bits from 16 on
    constexpr BYTE sizes[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4, 0, 0, 8, 8, 8};
    return type < sizeof sizes ? sizes[type] : 0;
}

// False also for a count whose size in bytes would not fit into 64 bits.
bool has_values_inside(const tiff_field &field)
{
    const uint64_t each = size_of_type(field.type);
    return each == 0 || (field.count <= field.data.size / each &&
                         field.data.holds(field.value_offset, field.count * each));
}

tiff_field read_field(const tiff_directory &directory, uint64_t entry)
{
    const byte_view &data = directory.structure.data;
    const uint64_t offset_size = directory.structure.sizes.offset;
    tiff_field field = {data, data.word(entry + 2), data.whole(entry + 4, offset_size),
                        entry + 4 + offset_size, true};
    const uint64_t each = size_of_type(field.type);
    field.is_inline = each == 0 || field.count <= offset_size / each;
    if (!field.is_inline)
        field.value_offset = data.whole(entry + 4 + offset_size, offset_size);
    return field;
}

// Whole numbers count as they stand.
bool read_ratio(const tiff_directory &directory, WORD tag, uint64_t &numerator, uint64_t &denominator)
{
    const tiff_field field = tiff_find_field(directory, tag);
    bool ok = field.is_present();
    denominator = 1;
    if (ok && field.type == TYPE_RATIONAL) {
        numerator = field.data.dword(field.value_offset);
        denominator = field.data.dword(field.value_offset + 4);
    } else if (ok) {
        numerator = tiff_whole_number(field, 0, ok);
    }
    return ok;
}

// A file without a unit counts per inch; 0 stands for a unit without a length.
uint64_t read_unit(const tiff_directory &directory)
{
    constexpr uint64_t unit_inch = 2;
    constexpr uint64_t unit_centimetre = 3;
    const tiff_field field = tiff_find_field(directory, TIFF_TAG_RESOLUTION_UNIT);
    bool ok = field.is_present();
    const uint64_t code = ok ? tiff_whole_number(field, 0, ok) : unit_inch;
    return code == unit_inch ? ZT_RES_UNIT_INCH : code == unit_centimetre ? ZT_RES_UNIT_CENTIMETER : 0;
}

}  // namespace

uint64_t tiff_field::size() const
{
    return count * size_of_type(type);
}

bool tiff_open(const byte_view &bytes, tiff_structure &structure, IMAGE_FACTS &facts)
{
    const bool is_big_endian = bytes.matches(0, "MM", 2);
    const byte_view data = {bytes.data, bytes.size,
                            is_big_endian ? byte_order::big_endian : byte_order::little_endian};
    structure = {data, CLASSIC, data.dword(4)};
    if (!data.holds(0, 8))
        return report_problem(facts, "truncated: the file ends inside its header");
    if (!is_big_endian && !bytes.matches(0, "II", 2))
        return report_problem(facts, "corrupt: unknown byte order");
    if (data.word(2) == VERSION_CLASSIC)
        return true;
    if (data.word(2) != VERSION_BIG)
        return report_problem(facts, "corrupt: no TIFF header");
    structure = {data, BIG, data.whole(8, 8)};
    if (!data.holds(0, 16))
        return report_problem(facts, "truncated: the file ends inside its header");
    if (data.word(4) != BIG.offset)
        return report_problem(facts, "corrupt: unknown width of its offsets");
    return true;
}

tiff_directory tiff_read_directory(const tiff_structure &structure, uint64_t offset)
{
    const byte_view &data = structure.data;
    tiff_directory directory = {structure, offset, 0, false, 0};
    if (!data.holds(offset, structure.sizes.entry_count))
        return directory;
    const uint64_t claimed = data.whole(offset, structure.sizes.entry_count);
    const uint64_t possible = (data.size - offset - structure.sizes.entry_count) / structure.sizes.entry;
    directory.entry_count = claimed < possible ? claimed : possible;
    directory.is_whole = claimed <= possible && data.holds(offset, directory.size());
    if (directory.is_whole)
        directory.next_offset = data.whole(directory.entry(claimed), structure.sizes.offset);
    return directory;
}

tiff_field tiff_find_field(const tiff_directory &directory, WORD tag)
{
    for (uint64_t i = 0; i < directory.entry_count; ++i) {
        if (directory.structure.data.word(directory.entry(i)) != tag)
            continue;
        const tiff_field found = read_field(directory, directory.entry(i));
        return size_of_type(found.type) != 0 && has_values_inside(found) ? found : tiff_field{};
    }
    return {};
}

bool tiff_check_fields(const tiff_directory &directory, IMAGE_FACTS &facts)
{
    for (uint64_t i = 0; i < directory.entry_count; ++i) {
        if (has_values_inside(read_field(directory, directory.entry(i))))
            continue;
        OS_sprintf(facts.problem, "truncated or corrupt: its field %u points outside the file",
                   directory.structure.data.word(directory.entry(i)));
        return false;
    }
    return true;
}

uint64_t tiff_whole_number(const tiff_field &field, uint64_t index, bool &ok)
{
    const uint64_t size = size_of_type(field.type);
    const uint64_t value = field.data.whole(field.value_offset + size * index, size);
    const uint64_t sign = value >> (8 * size - 1);
    switch (field.type) {
    case TYPE_BYTE:
    case TYPE_SHORT:
    case TYPE_LONG:
    case TYPE_LONG8:
        return value;
    case TYPE_SIGNED_BYTE:
    case TYPE_SIGNED_SHORT:
    case TYPE_SIGNED_LONG:
    case TYPE_SIGNED_LONG8:
        ok = ok && sign == 0;
        return value;
    default:
        ok = false;
        return 0;
    }
}

void tiff_read_resolution(const tiff_directory &directory, IMAGE_FACTS &facts)
{
    ZT_RESOLUTION resolution = {};
    const bool has_x =
        read_ratio(directory, TIFF_TAG_X_RESOLUTION, resolution.x_numerator, resolution.x_denominator);
    const bool has_y =
        read_ratio(directory, TIFF_TAG_Y_RESOLUTION, resolution.y_numerator, resolution.y_denominator);
    resolution.unit = read_unit(directory);
    if (has_x || has_y)
        store_resolution(facts, resolution);
}
