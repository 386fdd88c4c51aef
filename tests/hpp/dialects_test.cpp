// foundation.hpp in every language it promises, and what it adds to the symbols of a module.

#include "headers/compilers.h"
#include "support/files.h"
#include "support/library_copy.h"
#include "support/text_matches.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// Each class, and each function template, is used.
const std::string use_of_everything = R"(
#include "foundation/foundation.hpp"
#include <mutex>
struct page { int number; };
INT compare_pages(const page *a, const page *b);
INT compare_pages(const page *a, const page *b) { return a->number - b->number; }
struct counted { counted() {} ~counted() {} };
int use_everything(const CHAR *name);
int use_everything(const CHAR *name)
{
    int sum = 0;
    qv::owner owner, other(7), nothing(qv::none);
    other = std::move(owner);
    qv::basic_owner<counted> guarded;
    LPVOID block = other.realloc(other.alloc(10), 20);
    if (other.flags(block) != 0 && other.disassociate(block) == nullptr)
        other.free(other.associate(block, 20));
    auto pages = qv::array<const page>::sorted<compare_pages>(other.tag(), 4);
    auto list = qv::array<page>::searchable<compare_pages>(other.tag(), 4);
    page *made = other.make<page>();
    if (made == nullptr || list.add(made) != 0 || pages.add(made) != 0)
        return 1;
    for (const page *each : pages)
        sum += each->number;
    sum += list.find(made, made) + list.set(0, made) + list.get(0, made) + list.remove(0);
    qv::section section(other.tag());
    qv::mem_section mem_section;
    qv::identifier identifier;
    qv::event event(0);
    {
        const std::lock_guard<qv::section> a(section);
        const std::lock_guard<qv::mem_section> b(mem_section);
        const std::lock_guard<qv::identifier> c(identifier);
    }
    sum += event.set() + event.wait() + event.reset();
    const qv::loaded_module module(name);
    if (const auto function = module.symbol<int(int)>("twice"))
        sum += function(1);
    qv::file file(name, 0), moved = std::move(file);
#if __has_include(<memory_resource>)
    std::pmr::memory_resource &resource = other;
    resource.deallocate(resource.allocate(8, 64), 8, 64);
#endif
    return sum + static_cast<int>(moved.seek(0, 0));
}
)";

std::vector<dialect> dialects()
{
    std::vector<dialect> all;
    for (const char *compiler : {"g++", "clang++"})
        for (const char *standard : {"c++17", "c++20", "c++2b"})
            all.push_back({compiler, "c++", standard});
    return all;
}

class HppDialect : public CompiledSnippets {
protected:
    // Dynamic symbols that a module with `use_of_everything` defines, built with these options.
    std::string symbols_of_module(std::vector<std::string> options)
    {
        const std::string module = scratch.file("module.so");
        options.insert(options.end(), {"-O0", "-fPIC", "-shared", "-o", module});
        const child_result built = compile(use_of_everything, options);
        EXPECT_TRUE(built.succeeded()) << built.describe();
        const child_result listed = run_command({NM_PROGRAM, "--dynamic", "--defined-only", module});
        EXPECT_TRUE(listed.succeeded()) << listed.describe();
        return listed.out;
    }
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Dialects, HppDialect, testing::ValuesIn(dialects()), dialect_name);

TEST_P(HppDialect, CompilesAloneAndTwice)
{
    const std::string include = "#include \"foundation/foundation.hpp\"\n";
    expect_compiles_without_warning(include + include + "int unit_is_not_empty;\n", "foundation.hpp");
}

TEST_P(HppDialect, TellsOlderOnesWhatItNeeds)
{
    const child_result result =
        compile("#include \"foundation/foundation.hpp\"\n", {"-std=c++14", "-fsyntax-only"});
    EXPECT_FALSE(result.succeeded());
    EXPECT_FALSE(matches(result.err, "(foundation/foundation.hpp needs C\\+\\+17 or newer)").empty())
        << result.describe();
}

TEST_P(HppDialect, CompilesWithoutWarningWhereverItIsUsed)
{
    const std::vector<std::string> strict = {"-Werror",
                                             "-Wconversion",
                                             "-Wsign-conversion",
                                             "-Wshadow",
                                             "-Wold-style-cast",
                                             "-Wnon-virtual-dtor",
                                             "-Wundef",
                                             "-Woverloaded-virtual",
                                             "-O2",
                                             "-o",
                                             "/dev/null",
                                             "-c"};
    const child_result plain = compile(use_of_everything, strict);
    EXPECT_TRUE(plain.succeeded()) << plain.describe();
}

TEST_P(HppDialect, CompilesWithoutExceptionsAndRunTimeTypes)
{
    const child_result result = compile(
        use_of_everything, {"-Werror", "-O2", "-fno-exceptions", "-fno-rtti", "-o", "/dev/null", "-c"});
    EXPECT_TRUE(result.succeeded()) << result.describe();
}

TEST_P(HppDialect, LeavesNoMacroBehindButItsGuard)
{
    const child_result c_headers = compile("#include \"foundation/foundation.h\"\n", {"-dM", "-E"});
    const child_result result = compile("#include \"foundation/foundation.hpp\"\n", {"-dM", "-E"});
    const std::vector<std::string> before = matches(c_headers.out, "^#define (FOUNDATION_[A-Z_]*)");
    std::vector<std::string> expected = before;
    expected.push_back("FOUNDATION_FOUNDATION_HPP");
    std::vector<std::string> left = matches(result.out, "^#define (FOUNDATION_[A-Z_]*)");
    std::sort(expected.begin(), expected.end());
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left, expected);
}

TEST_P(HppDialect, AddsNoDynamicSymbolToAModuleThatHidesItsOwn)
{
    const std::string symbols = symbols_of_module({"-fvisibility=hidden"});
    EXPECT_EQ(matches(symbols, " (_ZT?.*2qv.*)$"), std::vector<std::string>{});
}

// Such symbols ("u") are one for the process, and keep the module that defines them from being unloaded.
TEST_P(HppDialect, AddsNoSymbolThatWouldKeepAModuleLoaded)
{
    EXPECT_EQ(matches(symbols_of_module({}), " u (.*2qv.*)$"), std::vector<std::string>{});
}
