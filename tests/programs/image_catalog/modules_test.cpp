// The companion modules: a bad one costs the sizes of its kind, one message, and nothing else.

#include "catalog_run.h"
#include "image_bytes.h"
#include "support/files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace fs = std::filesystem;

namespace {

constexpr char BMP_MODULE_NAME[] = "libQVbmp17.so";

std::string message(const std::string &reason)
{
    return std::string(BMP_MODULE_NAME) + ":  cannot be used: " + reason +
           "; 2 images are listed without size\n";
}

class Module : public ImageCatalog {
protected:
    // A host with one good module, for PNG, and whatever `place` puts at the path of that for BMP.
    void expect_refused(const std::string &reason) const
    {
        const child_result table = run_program(host, {path("images")});
        EXPECT_EQ(table.status, 1);
        EXPECT_EQ(table.err, message(reason));
        const child_result json = run_program(host, {"--json", path("images")});
        EXPECT_EQ(json.status, 1);
        EXPECT_EQ(json.err, "");
        const catalogue_document read = read_catalogue(json);
        EXPECT_EQ(read.kinds.at("bmp").at("module_problem"), reason);
        EXPECT_EQ(read.kinds.at("png").at("module_problem"), "null");
        EXPECT_EQ(read.entry(good).at("width"), "20");
        for (const std::string &bitmap : bitmaps) {
            EXPECT_EQ(read.entry(bitmap).at("kind"), "bmp");
            EXPECT_EQ(read.entry(bitmap).at("width"), "null");
            EXPECT_EQ(read.entry(bitmap).at("md5"), md5sum(bitmap));
            EXPECT_EQ(read.entry(bitmap).at("problem"), "null") << "the file itself is sound";
        }
    }
    void SetUp() override { give_module(PNG_MODULE, "png"); }
    std::string bmp_module() const { return path(std::string("host/") + BMP_MODULE_NAME); }

    const std::string host = lonely_host();
    const std::string good = write("images/a.png", png_image());
    const std::vector<std::string> bitmaps = {write("images/b.bmp", bmp_image(2, 2, 0, 0)),
                                              write("images/c.bmp", bmp_image(2, 2, 0, 0))};
};

}  // namespace

TEST_F(Module, ThatIsMissingIsOneMessage)
{
    expect_refused("it cannot be opened: No such file or directory");
}

TEST_F(Module, ThatIsAPipeIsNotWaitedFor)
{
    ASSERT_EQ(mkfifo(bmp_module().c_str(), 0600), 0);
    expect_refused("it is no regular file");
}

TEST_F(Module, ThatIsAFolderIsRefused)
{
    fs::create_directory(bmp_module());
    expect_refused("it is no regular file");
}

TEST_F(Module, ThatIsATextIsRefused)
{
    write(std::string("host/") + BMP_MODULE_NAME, std::string(200, 'x'));
    expect_refused("it is no shared object");
}

TEST_F(Module, ThatIsAProgramOfAnotherProcessorIsRefused)
{
    constexpr size_t machine_offset = 18;
    write(std::string("host/") + BMP_MODULE_NAME,
          with_bytes(content_of(BMP_MODULE), machine_offset, std::string("\xB7\0", 2)));
    expect_refused("it is for another processor");
}

TEST_F(Module, ThatIsCutOffIsRefusedWhereverItIsCut)
{
    const std::string whole = content_of(BMP_MODULE);
    constexpr size_t elf_header = 64;
    for (size_t length : {elf_header, elf_header + 100, size_t{4096}, whole.size() / 2, whole.size() - 1}) {
        SCOPED_TRACE(length);
        write(std::string("host/") + BMP_MODULE_NAME, whole.substr(0, length));
        expect_refused("the file is cut off");
    }
}

TEST_F(Module, OfALibraryWithoutTheRecordIsRefused)
{
    give_module(FOUNDATION_LIBRARY, "bmp");
    expect_refused("it does not export image_module_identity");
}

TEST_F(Module, ThatLacksASymbolIsRefusedInTheLoadersWords)
{
    give_module(MODULE_THAT_MISSING_SYMBOL, "bmp");
    expect_refused("undefined symbol: function_that_nobody_has");
}

TEST_F(Module, ThatIsDamagedIsQuotedInPrintableWords)
{
    std::string module = content_of(MODULE_THAT_MISSING_SYMBOL);
    const std::string name = "function_that_nobody_has";
    for (size_t at = module.find(name); at != std::string::npos; at = module.find(name, at + 1))
        module = with_bytes(module, at, "\x94\x1b");
    write(std::string("host/") + BMP_MODULE_NAME, module);
    expect_refused("undefined symbol: ??nction_that_nobody_has");
}

struct faulty_module {
    const char *file;
    const char *reason;
};

void PrintTo(const faulty_module &module, std::ostream *stream)
{
    *stream << fs::path(module.file).stem().string();
}

class FaultyModule : public Module, public testing::WithParamInterface<faulty_module> {};

TEST_P(FaultyModule, IsRefused)
{
    give_module(GetParam().file, "bmp");
    expect_refused(GetParam().reason);
}

INSTANTIATE_TEST_SUITE_P(
    Made, FaultyModule,
    testing::Values(faulty_module{MODULE_THAT_LACKS_FUNCTION, "it does not export image_module_read"},
                    faulty_module{MODULE_THAT_LACKS_IDENTITY, "it does not export image_module_identity"},
                    faulty_module{MODULE_THAT_DATA_FOR_FUNCTION,
                                  "its image_module_read is not what the name stands for"},
                    faulty_module{MODULE_THAT_FUNCTION_FOR_IDENTITY,
                                  "its image_module_identity is not what the name stands for"},
                    faulty_module{MODULE_THAT_OTHER_KIND, "it is the module for another kind, \"png\""},
                    faulty_module{MODULE_THAT_OTHER_VERSION,
                                  "it has version 3 of the interface, this program has version 2"}),
    [](const auto &tested) {
        const std::string stem = fs::path(tested.param.file).stem().string();
        return stem.substr(stem.find("that_") + 5);
    });

TEST_F(Module, IsLoadedOnlyWhenAFileOfItsKindTurnsUp)
{
    write("host/libQVtiff17.so", "no shared object");
    const child_result run = run_program(host, {good});
    EXPECT_EQ(run.status, 0) << run.describe();
}

TEST_F(Module, ThatLeaksIsFoundOut)
{
    give_module(MODULE_THAT_LEAKS, "bmp");
    const child_result run = run_program(host, {"--jobs", "1", path("images")});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "image_catalog:  2 blocks of memory were never released\n");
    EXPECT_NE(run.out.find("0 problems, "), std::string::npos) << run.out;
}

// What is shipped must not fail in the middle of its work either, whoever loads it.
TEST(ShippedModule, IsBoundWhenItIsLoaded)
{
    for (const char *module : {PNG_MODULE, TIFF_MODULE, BMP_MODULE, JPEG_MODULE}) {
        const child_result run = run_command({READELF_PROGRAM, "--dynamic", "--wide", module});
        EXPECT_NE(run.out.find("NOW"), std::string::npos) << run.describe();
    }
}
