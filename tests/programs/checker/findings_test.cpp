// Every mistake is told with its kind and its places, as text and as JSON.

#include "checker_run.h"

#include "support/files.h"

#include <ostream>

namespace {

// A place is "/* COMMENT */" of the line in the host, or the function that the call stands in.
struct place_words {
    std::string what;  // as the report calls it; empty for the call itself
    std::string site;
};

struct expected_finding {
    const char *mistake;
    const char *kind;
    const char *words;  // of the message
    std::vector<place_words> places;
};

void PrintTo(const expected_finding &expected, std::ostream *out)
{
    *out << expected.mistake;
}

const expected_finding EXPECTED[] = {
    {"leaks_before_cleanup",
     "leak",
     "64 bytes in 1 block under tag 0x10000000, never released before ZR_memm_cleanup",
     {{"recorded by ZR_memm_alloc", "// cleanup: recorded"},
      {"tag drawn by ZR_memm_unique_tag_get", "// cleanup: drawn"}}},
    // The record of 72 bytes, and 4 slots.
    {"leaks_array",
     "leak",
     "104 bytes in 2 blocks under tag 0x11, never released",
     {{"recorded by ZR_array_ptr_alloc", "leaks_array"}}},
    {"wrong_tag",
     "wrong-tag",
     "of 24 bytes under tag 0x12, but its tag is 0x11",
     {{"", "// wrong tag: released"}, {"recorded by ZR_memm_alloc", "// wrong tag: recorded"}}},
    {"wrong_tag_resized",
     "wrong-tag",
     "of 24 bytes under tag 0x12, but its tag is 0x11",
     {{"", "// resized: resized"}, {"recorded by ZR_memm_alloc", "// resized: recorded"}}},
    {"double_release",
     "double-release",
     "of 24 bytes under tag 0x11, which was released before",
     {{"", "// twice: second"},
      {"recorded by ZR_memm_alloc", "// twice: recorded"},
      {"released by ZR_memm_free", "// twice: first"}}},
    {"release_behind_tag",
     "double-release",
     "of 24 bytes under tag 0x11, which was released before",
     {{"", "// behind tag: released"},
      {"recorded by ZR_memm_alloc", "// behind tag: recorded"},
      {"released by ZR_memm_free_all", "release_behind_tag"}}},
    {"not_recorded", "not-recorded", "which is recorded under no tag", {{"", "// not recorded: released"}}},
    {"recorded_twice",
     "recorded-twice",
     "which is recorded already",
     {{"", "recorded_twice"}, {"recorded by ZR_memm_associate", "recorded_twice"}}},
    {"given_to_free",
     "recorded-freed",
     "free is given block",
     {{"", "given_to_free"}, {"recorded by ZR_memm_alloc", "// given to free: recorded"}}},
    {"given_to_realloc",
     "recorded-freed",
     "realloc is given block",
     {{"", "given_to_realloc"}, {"recorded by ZR_memm_alloc", "// given to realloc: recorded"}}},
    {"given_to_os_free",
     "recorded-freed",
     "OS_free is given block",
     {{"", "given_to_os_free"}, {"recorded by ZR_memm_alloc", "// given to OS_free: recorded"}}},
    {"tag_zero", "tag-zero", "ZR_memm_alloc is given tag 0", {{"", "// tag 0: recorded"}}},
    {"null_disassociated",
     "null-disassociated",
     "ZR_memm_disassociate is given null",
     {{"", "null_disassociated"}}},
    {"null_resized", "null-resized", "ZR_memm_realloc is given null", {{"", "// null: resized"}}},
    {"array_behind_tag",
     "used-after-release",
     "ZR_array_ptr_count_get is given array",
     {{"", "array_behind_tag"},
      {"created by ZR_array_ptr_alloc", "sorted_array_of_three"},
      {"released by ZR_memm_free_all", "array_behind_tag"}}},
    {"array_deleted_twice",
     "used-after-release",
     "ZR_array_ptr_delete is given array",
     {{"", "array_deleted_twice"}, {"released by ZR_array_ptr_delete", "array_deleted_twice"}}},
    {"array_as_block",
     "wrong-kind",
     "ZR_array_ptr_delete releases it",
     {{"", "// as a block: released"}, {"created by ZR_array_ptr_alloc", "sorted_array_of_three"}}},
    {"unordered_removal",
     "unordered-removal",
     "ZR_array_ptr_remove takes element 0 of 3 from sorted array",
     {{"", "unordered_removal"}, {"created by ZR_array_ptr_alloc", "sorted_array_of_three"}}},
    {"no_comparator",
     "no-comparator",
     "ZR_array_ptr_find searches array",
     {{"", "no_comparator"}, {"created by ZR_array_ptr_alloc", "no_comparator"}}},
    {"null_identifier", "null-freed", "OS_mutex_ID_free_emu is given null", {{"", "null_identifier"}}},
    {"null_section", "null-freed", "OS_sync_cs_free_emu is given null", {{"", "null_section"}}},
    {"section_wrong_kind",
     "wrong-kind",
     "OS_sync_cs_free_emu is given mem-sync critical section",
     {{"", "section_wrong_kind"}, {"created by OS_mem_sync_cs_allocate_emu", "section_wrong_kind"}}},
    {"section_wrong_tag",
     "wrong-tag",
     "of 4 bytes under tag 0x12, but its tag is 0x11",
     {{"", "section_wrong_tag"}, {"created by OS_sync_cs_allocate_emu", "section_wrong_tag"}}},
    {"section_freed_twice",
     "double-release",
     "which was released before",
     {{"", "section_freed_twice"}, {"released by OS_sync_cs_free_emu", "section_freed_twice"}}},
    {"section_behind_tag",
     "used-after-release",
     "OS_sync_cs_leave is given critical section",
     {{"", "section_behind_tag"}, {"released by ZR_memm_free_all", "section_behind_tag"}}},
    {"section_held",
     "section-held",
     "a mem-sync critical section is still held",
     {{"entered by OS_sync_cs_enter", "section_held"},
      {"created by OS_mem_sync_cs_allocate", "section_held"}}},
    {"identifier_held",
     "section-held",
     "a mutex identifier is still held",
     {{"entered by OS_mutex_open", "identifier_held"},
      {"created by OS_mutex_ID_allocate", "identifier_held"}}},
    {"modes_mixed",
     "modes-mixed",
     "made in threaded mode and used in emulated mode",
     {{"", "modes_mixed"}, {"created by OS_create_event_th", "modes_mixed"}}},
    {"two_threads",
     "two-threads",
     "in ZR_array_ptr_add",
     {{"", "// threads: second"}, {"occupied by ZR_array_ptr_add", "two_threads"}}},
};

bool is_comment(const std::string &site)
{
    return site.rfind("// ", 0) == 0;
}

// The report's line about a place up to its end, or up to the offset in a function.
std::string line_of_place(const place_words &expected)
{
    const std::string what = "   " + (expected.what.empty() ? "" : expected.what + " ") + "at ";
    return is_comment(expected.site) ? what + "DIRECTORY/" + site_of(expected.site.substr(3)) + "\n"
                                     : what + expected.site + "+0x";
}

// Without the folder that the host was compiled in.
std::string without_folders(std::string text)
{
    const std::string name = "mistaken_host.c";
    for (size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + name.size())) {
        const size_t begin = text.rfind(" at ", at) + 4;
        text.replace(begin, at - begin, "DIRECTORY/");
        at = begin + sizeof "DIRECTORY/" - 1;
    }
    return text;
}

std::string text_of_place(const nlohmann::json &place)
{
    const nlohmann::json &file = place.at("file");
    if (!file.is_null()) {
        const std::string path = file.get<std::string>();
        return "// " + path.substr(path.rfind('/') + 1) + ":" + std::to_string(place.at("line").get<int>());
    }
    return place.at("frames").at(0).at("function").get<std::string>();
}

class CheckerFinding : public Checker, public testing::WithParamInterface<expected_finding> {};

}  // namespace

TEST_P(CheckerFinding, IsToldAsText)
{
    const child_result run = qv_check({MISTAKEN_HOST, GetParam().mistake});
    EXPECT_TRUE(run.succeeded()) << run.describe();
    EXPECT_EQ(run.out, "done\n");
    const std::string report = without_folders(run.err);
    EXPECT_NE(report.find(std::string("== ") + GetParam().kind + ": "), std::string::npos) << run.err;
    EXPECT_NE(report.find(GetParam().words), std::string::npos) << run.err;
    for (const place_words &each : GetParam().places)
        EXPECT_NE(report.find(line_of_place(each)), std::string::npos)
            << "no line " << line_of_place(each) << " in\n"
            << report;
    EXPECT_NE(report.find("== 1 finding\n"), std::string::npos) << run.err;
}

TEST_P(CheckerFinding, IsToldAsJson)
{
    const child_result run = qv_check({"--json", MISTAKEN_HOST, GetParam().mistake});
    EXPECT_TRUE(run.succeeded()) << run.describe();
    const json_lines lines = read_json_lines(run.err);
    ASSERT_EQ(lines.size(), 2u) << run.err;
    EXPECT_EQ(lines[0].at("kind"), GetParam().kind);
    EXPECT_NE(lines[0].at("message").get<std::string>().find(GetParam().words), std::string::npos) << run.err;
    for (const place_words &each : GetParam().places) {
        const std::string site = is_comment(each.site) ? "// " + site_of(each.site.substr(3)) : each.site;
        bool is_told = (each.what.empty() || lines[0].at("kind") == "leak") && lines[0].contains("place") &&
                       text_of_place(lines[0].at("place")) == site;
        for (const nlohmann::json &related : lines[0].at("related")) {
            const std::string what =
                related.at("what").get<std::string>() + " by " + related.at("function").get<std::string>();
            is_told |= what == each.what && text_of_place(related) == site;
        }
        EXPECT_TRUE(is_told) << each.what << " " << site << " is not in " << run.err;
    }
    EXPECT_EQ(lines[1].at("kind"), "summary");
    EXPECT_EQ(lines[1].at("findings"), 1);
}

INSTANTIATE_TEST_SUITE_P(Mistakes, CheckerFinding, testing::ValuesIn(EXPECTED),
                         [](const auto &finding) { return std::string(finding.param.mistake); });

TEST_F(Checker, GroupsLeaksByPlaceTheLargestFirst)
{
    const child_result run = qv_check({"--json", MISTAKEN_HOST, "leaks"});
    const json_lines lines = read_json_lines(run.err);
    ASSERT_EQ(lines.size(), 4u) << run.err;
    const struct {
        const char *comment;
        int bytes, blocks;
        const char *tag;
    } expected[] = {
        {"leaks: large", 5000, 1, "0x12"}, {"leaks: small", 300, 3, "0x11"}, {"leaks: of both", 2, 2, ""}};
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(lines[i].at("kind"), "leak");
        EXPECT_EQ(text_of_place(lines[i].at("place")), "// " + site_of(expected[i].comment));
        EXPECT_EQ(lines[i].at("bytes"), expected[i].bytes);
        EXPECT_EQ(lines[i].at("blocks"), expected[i].blocks);
        EXPECT_EQ(lines[i].value("tag", ""), expected[i].tag);
    }
}

TEST_F(Checker, TellsTheSameMistakeAtTheSamePlaceOnceAndCountsIt)
{
    const child_result text = qv_check({MISTAKEN_HOST, "repeated"});
    EXPECT_NE(text.err.find("== 1 finding, met again 4 times\n"), std::string::npos) << text.err;
    const json_lines lines = read_json_lines(qv_check({"--json", MISTAKEN_HOST, "repeated"}).err);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1].at("findings"), 1);
    EXPECT_EQ(lines[1].at("repeated"), 4);
}

TEST_F(Checker, ShowsTheStackOfTheCall)
{
    const json_lines lines = read_json_lines(qv_check({"--json", MISTAKEN_HOST, "wrong_tag"}).err);
    ASSERT_EQ(lines.size(), 2u);
    const nlohmann::json &stack = lines[0].at("stack");
    ASSERT_GE(stack.size(), 2u);
    EXPECT_EQ(stack[0].at("function"), "wrong_tag");
    EXPECT_EQ(stack[1].at("function"), "main");
    EXPECT_EQ(stack[0].at("object"), MISTAKEN_HOST);
}
