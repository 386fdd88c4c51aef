// CRC and MD5 of the bytes themselves, MD5 in the pieces that the first bytes say, against zlib and
// libcrypto.

#include "foundation/util.h"

#include "fuzz/target.h"

#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/md5.h>
#include <zlib.h>

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    byte_source source(data, size);
    const auto cuts = source.take<uint64_t>();
    guarded_bytes message(data, size);  // ends at a page's border, and begins anywhere

    require_equal("the CRC", ZR_util_CRC_calc(message.data(), size), crc32(0, data, static_cast<uInt>(size)));

    ZT_MD5_CONTEXT context;
    MD5Init(&context);
    size_t fed = 0;
    for (unsigned shift = 0; fed < size; shift = (shift + 7) % 64) {
        const size_t length = std::min<size_t>(cuts >> shift & 0x7F, size - fed);
        MD5Update(&context, message.data() + fed, static_cast<UINT>(length));
        fed += length;
        if (cuts >> shift == 0) {
            MD5Update(&context, message.data() + fed, static_cast<UINT>(size - fed));
            break;
        }
    }
    MD5Final(&context);
    BYTE expected[16];
    MD5(data, size, expected);
    require(memcmp(context.digest, expected, sizeof expected) == 0, "the digest is libcrypto's");
    return 0;
}
