// A host of many libraries: crowded_host LIBRARY... loads them in that order, or finds them as it was linked
// with them, and asks each for a checksum. The library's own results, zlib's and libcrypto's are right in any
// order; libmd's functions, and libbsd's in front of them, are asked only with "--with-libmd" before the
// names: behind the library they call it in libmd's place.
#include "foundation/util.h"

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>

#include <string>

namespace {

constexpr unsigned char DIGEST_OF_ABC[] = {0x90, 0x01, 0x50, 0x98, 0x3c, 0xd2, 0x4f, 0xb0,
                                           0xd6, 0x96, 0x3f, 0x7d, 0x28, 0xe1, 0x7f, 0x72};
constexpr unsigned long CRC_OF_DIGITS = 0xCBF43926;

// As libmd's header has them; `version` null: the default one.
bool has_right_libmd_digest(void *library, const char *version)
{
    const auto find = [&](const char *name) {
        return version != nullptr ? dlvsym(library, name, version) : dlsym(library, name);
    };
    auto *init = reinterpret_cast<void (*)(void *)>(find("MD5Init"));
    auto *update = reinterpret_cast<void (*)(void *, const unsigned char *, size_t)>(find("MD5Update"));
    auto *final = reinterpret_cast<void (*)(unsigned char *, void *)>(find("MD5Final"));
    alignas(16) unsigned char context[1024];
    unsigned char digest[256] = {};
    init(context);
    update(context, reinterpret_cast<const unsigned char *>("abc"), 3);
    final(digest, context);
    return memcmp(digest, DIGEST_OF_ABC, 16) == 0;
}

template <typename Function> Function in(void *library, const char *name)
{
    return reinterpret_cast<Function>(dlsym(library, name));
}

bool is_right_foundation(void *library)
{
    ZT_MD5_CONTEXT context;
    in<decltype(&MD5Init)>(library, "MD5Init")(&context);
    in<decltype(&MD5Update)>(library, "MD5Update")(&context, "abc", 3);
    in<decltype(&MD5Final)>(library, "MD5Final")(&context);
    return memcmp(context.digest, DIGEST_OF_ABC, 16) == 0 &&
           in<decltype(&ZR_util_CRC_calc)>(library, "ZR_util_CRC_calc")("123456789", 9) == CRC_OF_DIGITS;
}

bool is_right_zlib(void *library)
{
    using crc32_type = unsigned long (*)(unsigned long, const void *, unsigned);
    return in<crc32_type>(library, "crc32")(0, "123456789", 9) == CRC_OF_DIGITS;
}

bool is_right_libcrypto(void *library)
{
    using md5_type = unsigned char *(*)(const void *, size_t, unsigned char *);
    unsigned char digest[16];
    in<md5_type>(library, "MD5")("abc", 3, digest);
    return memcmp(digest, DIGEST_OF_ABC, 16) == 0;
}

bool is_right(const std::string &name, void *library, bool with_libmd)
{
    if (name.find("libQVfoundation") != std::string::npos)
        return is_right_foundation(library);
    if (name.find("libz.") != std::string::npos)
        return is_right_zlib(library);
    if (name.find("libcrypto.") != std::string::npos)
        return is_right_libcrypto(library);
    return !with_libmd || has_right_libmd_digest(
                              library, name.find("libbsd.") != std::string::npos ? "LIBBSD_0.0" : nullptr);
}

}  // namespace

int main(int argc, char **argv)
{
    const bool with_libmd = argc > 1 && strcmp(argv[1], "--with-libmd") == 0;
    const int first = with_libmd ? 2 : 1;
    void *libraries[16] = {};
    for (int i = first; i < argc && i < 16; ++i) {
        libraries[i] = dlopen(argv[i], RTLD_NOW | RTLD_GLOBAL);
        if (libraries[i] == nullptr) {
            fprintf(stderr, "%s\n", dlerror());
            return 2;
        }
    }
    int wrong = 0;
    for (int i = first; i < argc && i < 16; ++i)
        if (!is_right(argv[i], libraries[i], with_libmd)) {
            fprintf(stderr, "%s gives a wrong checksum\n", argv[i]);
            ++wrong;
        }
    return wrong == 0 ? 0 : 1;
}
