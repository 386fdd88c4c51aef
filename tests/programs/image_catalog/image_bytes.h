// Image files made byte by byte, good ones that identify reads and such as no program would write.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

enum class byte_order { LITTLE, BIG };

std::string number(byte_order order, uint64_t value, unsigned bytes);
// `text` with the bytes at `offset` replaced.
std::string with_bytes(std::string text, size_t offset, const std::string &bytes);

// ---- PNG

// With its right checksum.
std::string png_chunk(const std::string &type, const std::string &data);
std::string png_header(uint32_t width, uint32_t height, unsigned bits = 8, unsigned colour_type = 0);
std::string png_resolution(uint32_t x, uint32_t y, unsigned unit);
// Signature, these chunks, IEND.
std::string png_file(const std::vector<std::string> &chunks);
// The IDAT chunk of an 8-bit grey image.
std::string png_pixels(uint32_t width, uint32_t height);
// 20 x 10 grey pixels; `extra` are chunks in front of the pixels.
std::string png_image(const std::string &extra = "");

// ---- TIFF

enum tiff_type : uint16_t {
    TIFF_BYTE = 1,
    TIFF_ASCII = 2,
    TIFF_SHORT = 3,
    TIFF_LONG = 4,
    TIFF_RATIONAL = 5,
    TIFF_SIGNED_LONG = 9
};

struct tiff_field {
    uint16_t tag;
    tiff_type type;
    uint32_t count;
    std::string value;  // all values in the file's order; four bytes or less stand in the directory
};

// One value; a ratio's denominator is 1.
tiff_field one_value(byte_order order, uint16_t tag, tiff_type type, uint32_t value);
tiff_field ratio(byte_order order, uint16_t tag, uint32_t numerator, uint32_t denominator);
// Header, room for pixels at byte 8, and the directory, at byte TIFF_DIRECTORY, with the values behind it.
std::string tiff_file(byte_order order, const std::vector<tiff_field> &fields, uint32_t next = 0);
constexpr uint32_t TIFF_DIRECTORY = 208;
// 20 x 10 grey pixels; a field of `extra` replaces the usual one of its tag.
std::vector<tiff_field> tiff_fields(byte_order order, const std::vector<tiff_field> &extra = {});
std::string tiff_image(byte_order order, const std::vector<tiff_field> &extra = {});
// The same with offsets and counts of 64 bits.
std::string big_tiff_image(byte_order order, const std::vector<tiff_field> &extra = {});

// ---- JPEG

std::string jpeg_segment(unsigned marker, const std::string &data);
std::string jfif_segment(unsigned unit, unsigned x, unsigned y);
std::string exif_segment(byte_order order, const std::vector<tiff_field> &fields);
// A real image of 96 x 64 pixels with these segments at its beginning.
std::string jpeg_image(const std::string &segments = "");
// The offset of the frame header's height, which the width follows.
size_t jpeg_size_offset(const std::string &jpeg);

// ---- BMP

// 24 bits to a pixel; a negative height runs from the top down.
std::string bmp_image(int32_t width, int32_t height, int32_t x_per_metre, int32_t y_per_metre);
// 24 bits to a pixel, behind an information header of `size` bytes: 16 or more. 2835 pixels per metre where
// it has room for them.
std::string bmp_with_header(uint32_t size, int32_t width, int32_t height);
// The oldest header, with 16-bit sides and no resolution.
std::string bmp_core_image(uint16_t width, uint16_t height);
