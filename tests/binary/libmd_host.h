// MD5 of a text by libmd, whose functions have the names of the library's but other parameters. Apart from
// the tests, because the two sets of declarations do not go together.
#pragma once

#include <array>
#include <string>

using libmd_digest = std::array<unsigned char, 16>;

// By the functions that this program is bound to.
libmd_digest digest_by_bound_functions(const std::string &text);

// By the functions of libmd itself, looked up in it.
libmd_digest digest_by_libmd(const std::string &text);
