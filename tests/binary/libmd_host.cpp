#include "binary/libmd_host.h"

#include <dlfcn.h>
#include <md5.h>

namespace {

libmd_digest digest_by(decltype(&MD5Init) init, decltype(&MD5Update) update, decltype(&MD5Final) final,
                       const std::string &text)
{
    MD5_CTX context;
    libmd_digest digest;
    init(&context);
    update(&context, reinterpret_cast<const unsigned char *>(text.data()), text.size());
    final(digest.data(), &context);
    return digest;
}

template <typename Function> Function in(void *library, const char *name)
{
    return reinterpret_cast<Function>(dlsym(library, name));
}

}  // namespace

libmd_digest digest_by_bound_functions(const std::string &text)
{
    return digest_by(&MD5Init, &MD5Update, &MD5Final, text);
}

libmd_digest digest_by_libmd(const std::string &text)
{
    void *libmd = dlopen("libmd.so.0", RTLD_LAZY | RTLD_NOLOAD);
    const libmd_digest digest =
        digest_by(in<decltype(&MD5Init)>(libmd, "MD5Init"), in<decltype(&MD5Update)>(libmd, "MD5Update"),
                  in<decltype(&MD5Final)>(libmd, "MD5Final"), text);
    dlclose(libmd);
    return digest;
}
