// The public headers in one unit with others that define BYTE, WORD, INT or LONG for themselves, and what
// docs/guides/beside-other-libraries.md says of those that differ.

#include "headers/compilers.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::vector<dialect> dialects()
{
    std::vector<dialect> all;
    for (const char *compiler : {"gcc", "clang"})
        for (const char *standard : {"c99", "c11"})
            all.push_back({compiler, "c", standard});
    for (const char *compiler : {"g++", "clang++"})
        for (const char *standard : {"c++11", "c++20"})
            all.push_back({compiler, "c++", standard});
    return all;
}

class HeadersInCompany : public CompiledSnippets {
protected:
    child_result compile_both(const std::string &first, const std::string &second)
    {
        return compile(first + second + "int unit_is_not_empty;\n",
                       {"-Werror", "-fsyntax-only", "-idirafter", WINPR_FOLDER, "-idirafter", WINE_FOLDER});
    }
    void expect_go_together(const std::string &one, const std::string &other)
    {
        const child_result in_front = compile_both(one, other), behind = compile_both(other, one);
        EXPECT_TRUE(in_front.succeeded()) << one << other << in_front.describe();
        EXPECT_TRUE(behind.succeeded()) << other << one << behind.describe();
    }
    void expect_clash_in_LONG(const std::string &one, const std::string &other)
    {
        for (const child_result &result : {compile_both(one, other), compile_both(other, one)}) {
            EXPECT_FALSE(result.succeeded()) << one << other;
            EXPECT_NE(result.err.find("LONG"), std::string::npos) << result.describe();
        }
    }
};

// The way round, as the document has it.
[[maybe_unused]] std::string with_LONG_renamed(const std::string &includes)
{
    return "#define LONG foundation_LONG\n" + includes + "#undef LONG\n";
}

INSTANTIATE_TEST_SUITE_P(Dialects, HeadersInCompany, testing::ValuesIn(dialects()), dialect_name);

#if HAVE_ODBC
TEST_P(HeadersInCompany, GoTogetherWithThoseOfOdbc)
{
    expect_go_together("#include <sql.h>\n#include <sqlext.h>\n", include_all_headers());
}
#endif

#if HAVE_XMD
TEST_P(HeadersInCompany, GoTogetherWithThoseOfX11)
{
    expect_go_together("#include <X11/Xmd.h>\n", include_all_headers());
}
#endif

[[maybe_unused]] std::vector<std::string> windows_headers()
{
    std::vector<std::string> headers;
    if (HAVE_WINPR)
        headers.push_back("#include <winpr/wtypes.h>\n");
    if (HAVE_WINE)
        headers.push_back("#include <windef.h>\n#include <winbase.h>\n");
    return headers;
}

#if HAVE_WINPR || HAVE_WINE
TEST_P(HeadersInCompany, AreRefusedBesideAShorterLONG)
{
    for (const std::string &header : windows_headers())
        expect_clash_in_LONG(header, include_all_headers());
}

TEST_P(HeadersInCompany, GoTogetherWithAShorterLONGWhenTheirsIsRenamed)
{
    for (const std::string &header : windows_headers())
        expect_go_together(header, with_LONG_renamed(include_all_headers()));
}
#endif

}  // namespace
