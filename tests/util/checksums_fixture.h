// What the tests of checksums share: input, digests, and zlib and libcrypto as the independent answers.
#pragma once

#include "foundation/util.h"

#define OPENSSL_SUPPRESS_DEPRECATED  // the chaining values show only in the old interface's record
#include <openssl/md5.h>
#include <zlib.h>

#include <string.h>

#include <array>
#include <random>
#include <string>
#include <vector>

inline std::vector<BYTE> patterned_bytes(size_t count)
{
    std::mt19937 generator(20170u + static_cast<unsigned>(count));
    std::vector<BYTE> bytes(count);
    for (BYTE &byte : bytes)
        byte = static_cast<BYTE>(generator() >> 24);
    return bytes;
}

// ---- CRC-32

inline uint64_t crc(const std::string &text)
{
    return ZR_util_CRC_calc(text.data(), text.size());
}

inline uint64_t expected_crc(const BYTE *bytes, size_t count)
{
    return crc32(0, bytes, static_cast<uInt>(count));
}

// ---- MD5

using digest_bytes = std::array<BYTE, 16>;
using md5_state = std::array<UINT, 4>;

inline digest_bytes digest_of(const ZT_MD5_CONTEXT &context)
{
    digest_bytes digest;
    memcpy(digest.data(), context.digest, digest.size());
    return digest;
}

inline digest_bytes digest(const void *bytes, size_t count)
{
    ZT_MD5_CONTEXT context;
    MD5Init(&context);
    MD5Update(&context, bytes, static_cast<UINT>(count));
    MD5Final(&context);
    return digest_of(context);
}

inline digest_bytes expected_digest(const void *bytes, size_t count)
{
    digest_bytes result;
    MD5(static_cast<const unsigned char *>(bytes), count, result.data());
    return result;
}

inline std::string hexadecimal(const digest_bytes &digest)
{
    std::string text;
    for (const BYTE byte : digest) {
        text += "0123456789abcdef"[byte / 16];
        text += "0123456789abcdef"[byte % 16];
    }
    return text;
}

inline md5_state state_of(const ZT_MD5_CONTEXT &context)
{
    return {context.state[0], context.state[1], context.state[2], context.state[3]};
}

inline md5_state state_of(const MD5_CTX &context)
{
    return {context.A, context.B, context.C, context.D};
}
