// ASCII case, changed in place.

#include "util/conversions_fixture.h"

#include "support/build_facts.h"
#include "support/guarded_bytes.h"

#include <gtest/gtest.h>

#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <string>

namespace {

std::string lowered(std::string text)
{
    return Bsu_strlwr(text.data()) == text.data() ? text : "not the pointer that was given";
}

std::string raised(std::string text)
{
    return Bsu_strupr(text.data()) == text.data() ? text : "not the pointer that was given";
}

std::string every_byte_but_zero()
{
    std::string bytes;
    for (int byte = 1; byte < 256; ++byte)
        bytes += static_cast<CHAR>(byte);
    return bytes;
}

// A text too long to be held in memory: the same 64 MiB of "A" over and over.
class enormous_text {
public:
    explicit enormous_text(uint64_t length) : mapped_bytes_(length / PIECE_BYTES * PIECE_BYTES + PIECE_BYTES)
    {
        const int file = memfd_create("text", 0);
        EXPECT_EQ(ftruncate(file, PIECE_BYTES), 0);
        void *reserved =
            mmap(nullptr, mapped_bytes_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        EXPECT_NE(reserved, MAP_FAILED);
        text_ = static_cast<CHAR *>(reserved);
        map_piece(file, 0, MAP_SHARED);
        memset(text_, 'A', PIECE_BYTES);
        uint64_t offset = PIECE_BYTES;
        for (; offset + PIECE_BYTES < mapped_bytes_; offset += PIECE_BYTES)
            map_piece(file, offset, MAP_SHARED);
        map_piece(file, offset, MAP_PRIVATE);  // the terminator stands in this one alone
        text_[length] = '\0';
        close(file);
    }
    ~enormous_text() { munmap(text_, mapped_bytes_); }
    enormous_text(const enormous_text &) = delete;
    enormous_text &operator=(const enormous_text &) = delete;

    CHAR *text() { return text_; }

private:
    static constexpr uint64_t PIECE_BYTES = UINT64_C(64) << 20;

    void map_piece(int file, uint64_t offset, int sharing)
    {
        void *piece = mmap(text_ + offset, PIECE_BYTES, PROT_READ | PROT_WRITE,
                           MAP_FIXED | MAP_POPULATE | sharing, file, 0);
        EXPECT_NE(piece, MAP_FAILED);
    }

    uint64_t mapped_bytes_;
    CHAR *text_;
};

}  // namespace

TEST(CaseChange, ConvertsAsciiLettersOnly)
{
    EXPECT_EQ(lowered("MiXeD 123_Z"), "mixed 123_z");
    EXPECT_EQ(raised("MiXeD 123_Z"), "MIXED 123_Z");
}

TEST(CaseChange, LeavesEveryOtherByteAsItIs)
{
    std::string expected_lower = every_byte_but_zero();
    std::string expected_upper = every_byte_but_zero();
    for (int i = 0; i < 26; ++i) {
        expected_lower[static_cast<size_t>('A' + i - 1)] = static_cast<CHAR>('a' + i);
        expected_upper[static_cast<size_t>('a' + i - 1)] = static_cast<CHAR>('A' + i);
    }
    EXPECT_EQ(lowered(every_byte_but_zero()), expected_lower);
    EXPECT_EQ(raised(every_byte_but_zero()), expected_upper);
    EXPECT_EQ(lowered("\xC4"), "\xC4");
    EXPECT_EQ(raised("\xC4"), "\xC4");
}

TEST(CaseChange, WorksAtEveryLength)
{
    for (size_t length = 0; length <= 70; ++length) {
        guarded_bytes text(std::string(length, 'q').c_str(), length + 1);
        EXPECT_EQ(Bsu_strupr(text.text()), text.text());
        EXPECT_EQ(text.text(), std::string(length, 'Q'));
        EXPECT_EQ(Bsu_strlwr(text.text()), text.text());
        EXPECT_EQ(text.text(), std::string(length, 'q'));
    }
}

TEST(CaseChange, StopsAtTheTerminator)
{
    EXPECT_EQ(raised(std::string("ab\0cd", 5)), std::string("AB\0cd", 5));
    EXPECT_EQ(lowered(std::string("AB\0CD", 5)), std::string("ab\0CD", 5));
}

TEST(CaseChange, DoesNotWriteToAnEmptyText)
{
    static const CHAR empty[] = "";  // in memory that cannot be written
    CHAR *text = const_cast<CHAR *>(empty);
    EXPECT_EQ(Bsu_strlwr(text), text);
    EXPECT_EQ(Bsu_strupr(text), text);
}

// The length is a signed 32-bit count, which 2^31 makes negative and 2^32 + 3 makes 3.
TEST(CaseChange, LeavesATextOf2GiBAlone)
{
    SKIP_GIGABYTES_IF_THREAD_SANITIZED();
    enormous_text text(UINT64_C(1) << 31);
    EXPECT_EQ(Bsu_strlwr(text.text()), text.text());
    EXPECT_EQ(std::string(text.text(), 5), "AAAAA");
    text.text()[0] = 'a';
    EXPECT_EQ(Bsu_strupr(text.text()), text.text());
    EXPECT_EQ(std::string(text.text(), 5), "aAAAA");
}

TEST(CaseChange, ReachesThreeBytesInATextOf4GiBAndThree)
{
    SKIP_GIGABYTES_IF_THREAD_SANITIZED();
    enormous_text text((UINT64_C(1) << 32) + 3);
    EXPECT_EQ(Bsu_strlwr(text.text()), text.text());
    EXPECT_EQ(std::string(text.text(), 5), "aaaAA");
    text.text()[3] = 'a';
    EXPECT_EQ(Bsu_strupr(text.text()), text.text());
    EXPECT_EQ(std::string(text.text(), 5), "AAAaA");
}
