#include "image_bytes.h"

#include "support/build_facts.h"
#include "support/files.h"

#include <zlib.h>

#include <algorithm>
#include <stdexcept>

std::string number(byte_order order, uint64_t value, unsigned bytes)
{
    std::string text;
    for (unsigned i = 0; i < bytes; ++i)
        text.push_back(static_cast<char>(value >> (8 * i)));
    if (order == byte_order::BIG)
        std::reverse(text.begin(), text.end());
    return text;
}

std::string with_bytes(std::string text, size_t offset, const std::string &bytes)
{
    return text.replace(offset, bytes.size(), bytes);
}

// ---- PNG

std::string png_chunk(const std::string &type, const std::string &data)
{
    const std::string body = type + data;
    const uLong crc = crc32(0, reinterpret_cast<const Bytef *>(body.data()), static_cast<uInt>(body.size()));
    return number(byte_order::BIG, data.size(), 4) + body + number(byte_order::BIG, crc, 4);
}

std::string png_header(uint32_t width, uint32_t height, unsigned bits, unsigned colour_type)
{
    return png_chunk("IHDR", number(byte_order::BIG, width, 4) + number(byte_order::BIG, height, 4) +
                                 static_cast<char>(bits) + static_cast<char>(colour_type) +
                                 std::string(3, '\0'));
}

std::string png_resolution(uint32_t x, uint32_t y, unsigned unit)
{
    return png_chunk("pHYs",
                     number(byte_order::BIG, x, 4) + number(byte_order::BIG, y, 4) + static_cast<char>(unit));
}

std::string png_file(const std::vector<std::string> &chunks)
{
    std::string file = "\x89PNG\r\n\x1a\n";
    for (const std::string &chunk : chunks)
        file += chunk;
    return file + png_chunk("IEND", "");
}

std::string png_pixels(uint32_t width, uint32_t height)
{
    const std::string rows(size_t{width + 1} * height, '\0');
    std::string packed(compressBound(rows.size()), '\0');
    uLongf size = packed.size();
    if (compress(reinterpret_cast<Bytef *>(packed.data()), &size,
                 reinterpret_cast<const Bytef *>(rows.data()), rows.size()) != Z_OK)
        throw std::runtime_error("compress failed");
    return png_chunk("IDAT", packed.substr(0, size));
}

std::string png_image(const std::string &extra)
{
    return png_file({png_header(20, 10), extra, png_pixels(20, 10)});
}

// ---- TIFF

namespace {

constexpr uint32_t PIXELS_OFFSET = 8;

// Entries, the next directory's offset, and the values that do not fit into the entries.
std::string tiff_directory(byte_order order, const std::vector<tiff_field> &fields, uint32_t offset,
                           uint32_t next)
{
    uint32_t value_offset = offset + 2 + 12 * static_cast<uint32_t>(fields.size()) + 4;
    std::string entries = number(order, fields.size(), 2);
    std::string values;
    for (const tiff_field &field : fields) {
        entries += number(order, field.tag, 2) + number(order, field.type, 2) + number(order, field.count, 4);
        if (field.value.size() <= 4) {
            entries += field.value + std::string(4 - field.value.size(), '\0');
        } else {
            entries += number(order, value_offset, 4);
            values += field.value;
            value_offset += static_cast<uint32_t>(field.value.size());
        }
    }
    return entries + number(order, next, 4) + values;
}

std::string tiff_header(byte_order order, uint32_t directory)
{
    return (order == byte_order::LITTLE ? "II" : "MM") + number(order, 42, 2) + number(order, directory, 4);
}

}  // namespace

tiff_field one_value(byte_order order, uint16_t tag, tiff_type type, uint32_t value)
{
    if (type == TIFF_RATIONAL)
        return ratio(order, tag, value, 1);
    return {tag, type, 1, number(order, value, type == TIFF_BYTE ? 1 : type == TIFF_SHORT ? 2 : 4)};
}

tiff_field ratio(byte_order order, uint16_t tag, uint32_t numerator, uint32_t denominator)
{
    return {tag, TIFF_RATIONAL, 1, number(order, numerator, 4) + number(order, denominator, 4)};
}

std::string tiff_file(byte_order order, const std::vector<tiff_field> &fields, uint32_t next)
{
    return tiff_header(order, TIFF_DIRECTORY) + std::string(TIFF_DIRECTORY - PIXELS_OFFSET, '\x80') +
           tiff_directory(order, fields, TIFF_DIRECTORY, next);
}

std::vector<tiff_field> tiff_fields(byte_order order, const std::vector<tiff_field> &extra)
{
    std::vector<tiff_field> fields = {
        one_value(order, 256, TIFF_SHORT, 20),            // width
        one_value(order, 257, TIFF_SHORT, 10),            // height
        one_value(order, 258, TIFF_SHORT, 8),             // bits per sample
        one_value(order, 259, TIFF_SHORT, 1),             // not compressed
        one_value(order, 262, TIFF_SHORT, 1),             // grey, 0 is black
        one_value(order, 273, TIFF_LONG, PIXELS_OFFSET),  // one strip
        one_value(order, 277, TIFF_SHORT, 1),             // samples per pixel
        one_value(order, 278, TIFF_SHORT, 10),            // rows per strip
        one_value(order, 279, TIFF_LONG, 200),            // bytes of the strip
    };
    for (const tiff_field &added : extra) {
        const auto is_replaced = [&](const tiff_field &field) {
            return field.tag == added.tag;
        };
        fields.erase(std::remove_if(fields.begin(), fields.end(), is_replaced), fields.end());
        fields.push_back(added);
    }
    std::sort(fields.begin(), fields.end(),
              [](const tiff_field &a, const tiff_field &b) { return a.tag < b.tag; });
    return fields;
}

std::string tiff_image(byte_order order, const std::vector<tiff_field> &extra)
{
    return tiff_file(order, tiff_fields(order, extra));
}

std::string big_tiff_image(byte_order order, const std::vector<tiff_field> &extra)
{
    const std::vector<tiff_field> fields = tiff_fields(order, extra);
    constexpr uint64_t pixels_offset = 16;
    const uint64_t directory = pixels_offset + 200;
    uint64_t value_offset = directory + 8 + 20 * fields.size() + 8;
    std::string entries = number(order, fields.size(), 8);
    std::string values;
    for (const tiff_field &field : fields) {
        const std::string value = field.tag == 273 ? number(order, pixels_offset, 4) : field.value;
        entries += number(order, field.tag, 2) + number(order, field.type, 2) + number(order, field.count, 8);
        if (value.size() <= 8) {
            entries += value + std::string(8 - value.size(), '\0');
        } else {
            entries += number(order, value_offset, 8);
            values += value;
            value_offset += value.size();
        }
    }
    return (order == byte_order::LITTLE ? "II" : "MM") + number(order, 43, 2) + number(order, 8, 2) +
           number(order, 0, 2) + number(order, directory, 8) + std::string(200, '\x80') + entries +
           number(order, 0, 8) + values;
}

// ---- JPEG

std::string jpeg_segment(unsigned marker, const std::string &data)
{
    return std::string("\xFF") + static_cast<char>(marker) + number(byte_order::BIG, data.size() + 2, 2) +
           data;
}

std::string jfif_segment(unsigned unit, unsigned x, unsigned y)
{
    return jpeg_segment(0xE0, std::string("JFIF\0\1\1", 7) + static_cast<char>(unit) +
                                  number(byte_order::BIG, x, 2) + number(byte_order::BIG, y, 2) +
                                  std::string(2, '\0'));
}

std::string exif_segment(byte_order order, const std::vector<tiff_field> &fields)
{
    return jpeg_segment(0xE1, std::string("Exif\0\0", 6) + tiff_header(order, 8) +
                                  tiff_directory(order, fields, 8, 0));
}

std::string jpeg_image(const std::string &segments)
{
    const std::string sample =
        content_of(std::string(SOURCE_DIRECTORY) + "/programs/image_catalog/samples/web-jfif.jpg");
    constexpr size_t jfif_end = 20;  // the sample's own is replaced
    return sample.substr(0, 2) + segments + sample.substr(jfif_end);
}

size_t jpeg_size_offset(const std::string &jpeg)
{
    return jpeg.find("\xFF\xC0") + 5;
}

// ---- BMP

namespace {

std::string bmp_file(const std::string &header, const std::string &pixels)
{
    const size_t pixels_offset = 14 + header.size();
    return "BM" + number(byte_order::LITTLE, pixels_offset + pixels.size(), 4) + std::string(4, '\0') +
           number(byte_order::LITTLE, pixels_offset, 4) + header + pixels;
}

std::string bmp_pixels(size_t width, size_t height)
{
    return std::string((width * 24 + 31) / 32 * 4 * height, '\x40');
}

std::string signed_number(int32_t value)
{
    return number(byte_order::LITTLE, static_cast<uint32_t>(value), 4);
}

}  // namespace

std::string bmp_image(int32_t width, int32_t height, int32_t x_per_metre, int32_t y_per_metre)
{
    const std::string header = signed_number(40) + signed_number(width) + signed_number(height) +
                               number(byte_order::LITTLE, 1, 2) + number(byte_order::LITTLE, 24, 2) +
                               signed_number(0) + signed_number(0) + signed_number(x_per_metre) +
                               signed_number(y_per_metre) + signed_number(0) + signed_number(0);
    const size_t rows = static_cast<size_t>(height < 0 ? -height : height);
    return bmp_file(header, bmp_pixels(static_cast<size_t>(width), rows));
}

std::string bmp_with_header(uint32_t size, int32_t width, int32_t height)
{
    std::string header = bmp_image(width, height, 2835, 2835).substr(14, 40) + std::string(84, '\0');
    header = with_bytes(header, 0, number(byte_order::LITTLE, size, 4)).substr(0, size);
    return bmp_file(header, bmp_pixels(static_cast<size_t>(width), static_cast<size_t>(height)));
}

std::string bmp_core_image(uint16_t width, uint16_t height)
{
    const std::string header = number(byte_order::LITTLE, 12, 4) + number(byte_order::LITTLE, width, 2) +
                               number(byte_order::LITTLE, height, 2) + number(byte_order::LITTLE, 1, 2) +
                               number(byte_order::LITTLE, 24, 2);
    return bmp_file(header, bmp_pixels(width, height));
}
