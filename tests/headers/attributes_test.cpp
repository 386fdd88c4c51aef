// What the prototypes promise the compiler: mistakes that are warned of, uses that are not, and that no call
// is optimised away for it.

#include "compilers.h"
#include "support/files.h"
#include "support/text_matches.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

namespace {

using statements = std::vector<std::string>;

const statements null_where_an_object_is_required = {
    "status = ZR_array_ptr_alloc(1, NULL, 4, 0, NULL);",
    "number = cal_ord_ref_date_from_DATE(NULL);",
    "status = convert_DATE_to_ZT_DATE(NULL, &date);",
    "status = convert_DATE_to_ZT_DATE(text, NULL);",
    "status = convert_ZT_DATE_to_DATE(NULL, text);",
    "status = convert_ZT_DATE_to_DATE(&date, NULL);",
    "OS_epoch_to_date(NULL, 0.0);",
    "OS_system_date_get(NULL);",
    "number = OS_ref_day_count_get(NULL);",
    "status = Bsu_double_to_string(2, NULL, 1.0);",
    "Bsu_strlwr(NULL);",
    "Bsu_strupr(NULL);",
    "MD5Init(NULL);",
    "MD5Update(NULL, text, 1);",
    "MD5Final(NULL);",
    "number = OS_sys_path_concat(NULL, text, text, 9);",
    "number = OS_sys_path_concat(text, NULL, text, 9);",
    "number = OS_sys_path_concat(text, text, NULL, 9);",
    "gap_ignore(NULL);",
    "non_gap_ignore(NULL);",
    "status = OS_sprintf(NULL, \"%d\", 1);",
    "number = parseHexByteString(NULL);",
    "status = OS_create_guid(NULL);",
    "status = OS_sync_cs_allocate(1, NULL);",
    "status = OS_mem_sync_cs_allocate(NULL);",
    "status = OS_mutex_ID_allocate(NULL);",
    "status = OS_mutex_open(object, NULL, NULL);",
};

// Each of these has a documented result, so a compiler must not take the argument for an object.
const statements null_with_a_documented_result = {
    "object = ZR_memm_alloc(1, 2, NULL, 0);",
    "object = ZR_memm_associate(1, NULL, 2);",
    "object = ZR_memm_free(1, NULL, NULL, 0);",
    "object = ZR_memm_realloc(1, NULL, 2, NULL, 0);",
    "object = ZR_memm_disassociate(1, NULL);",
    "flags = ZR_memm_flags(1, NULL);",
    "flags = ZR_memm_unique_tag_get(NULL, 0);",
    "status = ZR_array_ptr_alloc(1, &array, 4, 0, NULL);",
    "status = ZR_array_ptr_delete(NULL);",
    "status = ZR_array_ptr_add(NULL, NULL, NULL);",
    "status = ZR_array_ptr_set(NULL, 0, NULL);",
    "status = ZR_array_ptr_get(NULL, 0, NULL);",
    "status = ZR_array_ptr_find(NULL, NULL, NULL);",
    "status = ZR_array_ptr_index_get(NULL, NULL, NULL);",
    "status = ZR_array_ptr_count_get(NULL, NULL);",
    "status = ZR_array_ptr_remove_ex(NULL, 0, NULL, 0);",
    "status = ZR_array_ptr_remove(NULL, 0, NULL);",
    "status = _ZR_array_ptr_check(NULL);",
    "status = ZR_compare_pointers(NULL, NULL);",
    "OS_system_date_str_get(NULL);",
    "status = Bsu_convert_resolution(2, NULL, NULL, resolution);",
    "flags = ZR_util_CRC_calc(NULL, 0);",
    "MD5Update(&context, NULL, 0);",
    "object = OS_sys_module_load(NULL);",
    "object = OS_sys_sym_get(NULL, NULL);",
    "number = OS_sys_compfilename_create(NULL, text, 9);",
    "object = OS_realloc(NULL, 2);",
    "status = OS_free(NULL);",
    "status = OS_guid_to_string(NULL, NULL);",
    "status = OS_sync_cs_free_emu(1, NULL);",
    "status = OS_mem_sync_cs_free_emu(NULL);",
    "status = OS_mutex_ID_free_emu(NULL);",
    "OS_sync_cs_enter(NULL);",
    "OS_sync_cs_leave(NULL);",
    "status = OS_mutex_open(NULL, NULL, &object);",
    "status = OS_mutex_release(NULL);",
    "status = OS_create_event(NULL, 0, NULL);",
    "status = OS_close_event(NULL);",
    "status = OS_set_event(NULL);",
    "status = OS_reset_event(NULL);",
    "status = OS_wait_for_event(NULL);",
};

const statements result_that_nothing_replaces = {
    "ZR_memm_realloc(1, object, 2, NULL, 0);",
    "ZR_memm_flags(1, object);",
    "_ZR_array_ptr_check(array);",
    "ZR_compare_pointers(object, object);",
    "cal_ord_ref_date_from_DATE(text);",
    "OS_epoch_time();",
    "OS_system_epoch_time_get();",
    "OS_ref_day_count_get(&date);",
    "iQV_version_compile_date();",
    "iQV_convert_DPI_to_PPM(72);",
    "iQV_convert_PPM_to_DPI(72);",
    "ii_dword_swap(1);",
    "ii_qword_swap(1);",
    "mm_dword_swap(1);",
    "mm_qword_swap(1);",
    "OS_sys_module_load(text);",
    "OS_sys_sym_get(object, text);",
    "OS_module_usage_get();",
    "OS_process_id_get();",
    "OS_processor_count();",
    "OS_alloc(1);",
    "OS_realloc(object, 1);",
    "OS_memcmp(text, text, 1);",
    "OS_create(text);",
    "OS_open(text, 0, 0);",
    "OS_read(0, text, 1);",
    "parseHexByteString(text);",
    "OS_create_guid(guid);",
};

// Releases, calls made for what they do, and results that an output or a later call tells as well.
const statements result_that_may_be_ignored = {
    "ZR_memm_alloc(1, 2, NULL, 0);",  // the tag keeps the block
    "ZR_memm_associate(1, object, 2);",
    "ZR_memm_free(1, object, NULL, 0);",
    "ZR_memm_disassociate(1, object);",
    "ZR_memm_free_all(1);",
    "ZR_memm_cleanup();",
    "ZR_memm_unique_tag_get(NULL, 0);",
    "ZR_array_ptr_alloc(1, &array, 4, 0, NULL);",
    "ZR_array_ptr_add(array, object, NULL);",
    "ZR_array_ptr_remove(array, 0, NULL);",
    "ZR_array_ptr_delete(array);",
    "convert_ZT_DATE_to_DATE(&date, text);",
    "Bsu_convert_resolution(2, NULL, NULL, resolution);",
    "Bsu_strlwr(text);",
    "ZR_util_CRC_calc(text, 1);",  // builds the table
    "OS_threads_support();",       // settles the mode
    "OS_sys_module_unload(object);",
    "OS_free(object);",
    "OS_sprintf(text, \"%d\", 1);",
    "OS_message_box(text, text);",
    "OS_memcpy(text, guid, 1);",
    "OS_write(1, text, 1);",
    "OS_close(1);",
    "OS_delete(text);",
    "OS_sync_cs_allocate(1, &object);",
    "OS_sync_cs_free(1, object);",
    "OS_mutex_ID_allocate(&object);",
    "OS_mutex_ID_free(object);",
    "OS_mutex_open(object, NULL, &object);",
    "OS_mutex_release(object);",
    "OS_create_event(&object, 0, NULL);",
    "OS_close_event(object);",
    "OS_set_event(object);",
    "OS_reset_event(object);",
    "OS_wait_for_event(object);",
};

class Attributes : public CompiledSnippets {
protected:
    static std::string declarations()
    {
        return include_all_headers() +
               "extern CHAR text[64];\nextern BYTE guid[16];\nextern LPVOID object;\nextern ZT_DT_ANY "
               "*array;\n"
               "extern ZT_DATE date;\nextern ZT_RESOLUTION resolution;\nextern ZT_MD5_CONTEXT context;\n"
               "extern INT status;\nextern LONG number;\nextern uint64_t flags;\n"
               "void snippet_1(void);\n";
    }

    // The statements of which the compiler warns with `option`. Each stands on a line of its own.
    statements warned_of(const statements &candidates, const std::string &option)
    {
        std::string source = declarations();
        const size_t lines_before = lines_of(source).size();
        for (size_t i = 0; i < candidates.size(); ++i) {
            const std::string name = "snippet_" + std::to_string(i);
            source += "void " + name + "(void); void " + name + "(void) { " + candidates[i] + " }\n";
        }
        const child_result result = compile(source, {"-O2", "-c", "-o", scratch.file("snippets.o")});
        EXPECT_TRUE(result.succeeded()) << result.describe();
        statements warned;
        std::string last_line;
        for (const std::string &line : matches(result.err, ("source.txt:([0-9]+):.*\\[" + option).c_str())) {
            if (line != last_line)
                warned.push_back(candidates.at(std::stoul(line) - lines_before - 1));
            last_line = line;
        }
        return warned;
    }

    std::string assembly_of(const std::string &functions)
    {
        const std::string path = scratch.file("snippets.s");
        const child_result result = compile(declarations() + functions, {"-O3", "-S", "-o", path});
        EXPECT_TRUE(result.succeeded()) << result.describe();
        return content_of(path);
    }
};

size_t calls_of(const std::string &function, const std::string &assembly)
{
    return matches(assembly,
                   ("^[[:space:]](call|jmp)q?[[:space:]]+" + function + "(@PLT)?([[:space:]].*)?$").c_str())
        .size();
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Dialects, Attributes,
                         testing::Values(dialect{"gcc", "c", "c99"}, dialect{"gcc", "c++", "c++11"},
                                         dialect{"clang", "c", "c99"}, dialect{"clang", "c++", "c++11"}),
                         dialect_name);

TEST_P(Attributes, WarnOfNullWhereAnObjectIsRequired)
{
    EXPECT_EQ(warned_of(null_where_an_object_is_required, "-Wnonnull"), null_where_an_object_is_required);
}

TEST_P(Attributes, AllowNullWhereverItHasADocumentedResult)
{
    EXPECT_EQ(warned_of(null_with_a_documented_result, "-W"), statements{});
}

TEST_P(Attributes, WarnOfAnIgnoredResultThatNothingReplaces)
{
    EXPECT_EQ(warned_of(result_that_nothing_replaces, "-Wunused-result"), result_that_nothing_replaces);
}

TEST_P(Attributes, AllowResultsToBeIgnoredElsewhere)
{
    EXPECT_EQ(warned_of(result_that_may_be_ignored, "-W"), statements{});
}

TEST_P(Attributes, WarnOfArgumentsThatDoNotFitTheirFormat)
{
    const statements mistakes = {"OS_sprintf(text, \"%s\", 1);", "OS_debug_output(\"%d\", text);"};
    EXPECT_EQ(warned_of(mistakes, "-Wformat"), mistakes);
}

TEST_P(Attributes, WarnOfAccessBehindABlock)
{
    if (GetParam().compiler != "gcc")
        GTEST_SKIP() << "only gcc compares a block's size with what is stored in it";
    const statements mistakes = {
        "CHAR *block = (CHAR *)ZR_memm_alloc(1, 4, NULL, 0); if (block) __builtin_memset(block, 1, 5);",
        "CHAR *block = (CHAR *)ZR_memm_realloc(1, object, 4, NULL, 0); if (block) __builtin_memset(block, 1, "
        "5);",
        "CHAR *block = (CHAR *)OS_alloc(4); if (block) { __builtin_memset(block, 1, 5); object = block; }",
        "CHAR *block = (CHAR *)OS_realloc(object, 4); if (block) __builtin_memset(block, 1, 5);",
    };
    EXPECT_EQ(warned_of(mistakes, "-W(stringop-overflow|array-bounds)"), mistakes);
}

// A disassociated block goes to free, and a block of OS_alloc may.
TEST_P(Attributes, AllowFreeOfABlockThatIsTheCallers)
{
    const statements uses = {
        "LPVOID block = ZR_memm_alloc(1, 4, NULL, 0); ZR_memm_disassociate(1, block); __builtin_free(block);",
        "LPVOID block = OS_alloc(4); __builtin_free(block);",
        "LPVOID block = OS_realloc(__builtin_malloc(4), 4); OS_free(block);",
    };
    EXPECT_EQ(warned_of(uses, "-W"), statements{});
}

// The manager hands the block to free, where a host's own function may look at it.
TEST_P(Attributes, LetNoOptimiserDropWhatIsStoredInARecordedBlock)
{
    const std::string assembly = assembly_of(R"(
void snippet_1(void)
{
    uint32_t *block = (uint32_t *)ZR_memm_alloc(1, 4, NULL, 0);
    *block = 305419896;
    ZR_memm_free_all(1);
}
)");
    EXPECT_EQ(matches(assembly, "movl[[:space:]]+(\\$305419896)").size(), 1u) << assembly;
}

// Hosts count heap calls, so a block that nobody looks at is allocated all the same.
TEST_P(Attributes, LetNoOptimiserDropOrMergeCallsOfTheHeap)
{
    const std::string assembly = assembly_of(R"(
void snippet_1(void)
{
    ZR_memm_alloc(1, 16, NULL, 0);
    LPVOID first = ZR_memm_alloc(1, 16, NULL, 0);
    LPVOID second = ZR_memm_alloc(1, 16, NULL, 0);
    ZR_memm_free(1, first, NULL, 0);
    second = ZR_memm_realloc(1, second, 16, NULL, 0);
    ZR_memm_free(1, second, NULL, 0);
    first = OS_alloc(16);
    second = OS_alloc(16);
    first = OS_realloc(first, 16);
    OS_free(first);
    OS_free(second);
}
)");
    const std::map<std::string, size_t> expected = {{"ZR_memm_alloc", 3}, {"ZR_memm_realloc", 1},
                                                    {"ZR_memm_free", 2},  {"OS_alloc", 2},
                                                    {"OS_realloc", 1},    {"OS_free", 2}};
    for (const auto &[function, count] : expected)
        EXPECT_EQ(calls_of(function, assembly), count) << function << "\n" << assembly;
}
