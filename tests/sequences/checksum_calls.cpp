// MD5 records fed in pieces, several by turns, against libcrypto; CRCs of slices against zlib. Every word of
// the record is compared after every call.

#include "foundation/util.h"

#include "sequences/sequence.h"

#define OPENSSL_SUPPRESS_DEPRECATED  // the chaining values show only in the old interface's record
#include <openssl/md5.h>
#include <zlib.h>

#include <string.h>

#include <algorithm>
#include <array>
#include <random>

namespace {

constexpr size_t POOL_BYTES = 1 << 17;

const std::vector<BYTE> &pool()
{
    static const std::vector<BYTE> bytes = [] {
        std::mt19937 random(20170);
        std::vector<BYTE> made(POOL_BYTES);
        std::generate(made.begin(), made.end(), [&] { return static_cast<BYTE>(random() >> 24); });
        return made;
    }();
    return bytes;
}

class digest {
public:
    ZT_MD5_CONTEXT context;

    digest() { memset(&context, 0xA5, sizeof context); }

    void begin()
    {
        MD5Init(&context);
        MD5_Init(&other_);
        memcpy(buffer_, context.buffer, sizeof buffer_);  // left as it is
        bytes_ = 0;
    }

    void update(const BYTE *input, UINT length)
    {
        MD5Update(&context, input, length);
        MD5_Update(&other_, input, length);
        for (UINT i = 0; i < length; ++i)
            buffer_[bytes_++ % sizeof buffer_] = input[i];
    }

    std::array<BYTE, 16> finish()
    {
        std::array<BYTE, 16> expected;
        MD5Final(&context);
        MD5_Final(expected.data(), &other_);
        return expected;
    }

    std::vector<uint64_t> words_of_record() const
    {
        return {context.bit_count[0], context.bit_count[1], context.state[0],
                context.state[1],     context.state[2],     context.state[3]};
    }

    std::vector<uint64_t> expected_words() const
    {
        return {other_.Nl, other_.Nh, other_.A, other_.B, other_.C, other_.D};
    }

    bool buffers_agree() const { return memcmp(context.buffer, buffer_, sizeof buffer_) == 0; }

private:
    MD5_CTX other_;
    BYTE buffer_[64];
    uint64_t bytes_ = 0;
};

class checksum_subject : public subject {
public:
    checksum_subject()
    {
        for (digest &each : digests)
            each.begin();
    }

    void perform(const operation &next) override
    {
        // Mostly near the size of a block, sometimes long.
        const size_t length = next.refusal < 8 ? next.amount : next.amount % 192;
        const BYTE *input = pool().data() + (next.variant & 0x7FFF);
        digest &used = digests[next.which % digests.size()];
        const unsigned choice = next.what % 16;
        if (choice < 9)
            update(used, input, length);
        else if (choice < 11)
            finish_digest(used);
        else
            calculate_crc(input, length);
    }

    void finish() override
    {
        for (digest &each : digests)
            finish_digest(each);
    }

private:
    void update(digest &used, const BYTE *input, size_t length)
    {
        tell("MD5Update(context ", &used - digests.data(), ", pool + ", input - pool().data(), ", ", length,
             ")");
        used.update(input, static_cast<UINT>(length));
        expect_equal("the list of counts and state words", used.words_of_record(), used.expected_words());
        expect(used.buffers_agree(),
               "the buffer holds the input that is not compressed, and older one behind");
    }

    void finish_digest(digest &used)
    {
        tell("MD5Final, MD5Init(context ", &used - digests.data(), ")");
        const std::array<BYTE, 16> expected = used.finish();
        expect(memcmp(used.context.digest, expected.data(), expected.size()) == 0,
               "the digest is libcrypto's");
        expect(memcmp(used.context.state, expected.data(), expected.size()) == 0, "the state is the digest");
        used.begin();
    }

    void calculate_crc(const BYTE *input, size_t length)
    {
        tell("ZR_util_CRC_calc(pool + ", input - pool().data(), ", ", length, ")");
        expect_equal("the CRC", ZR_util_CRC_calc(input, length), crc32(0, input, static_cast<uInt>(length)));
    }

    std::array<digest, 3> digests;
};

}  // namespace

std::unique_ptr<subject> checksum_calls()
{
    return std::make_unique<checksum_subject>();
}
