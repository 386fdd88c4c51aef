// Which files a run finds: folders, exclusions, names on standard input, spellings of one file.

#include "catalog_run.h"
#include "image_bytes.h"

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace fs = std::filesystem;

using strings = std::vector<std::string>;

TEST_F(ImageCatalog, SearchesFoldersToTheBottomButFollowsNoLinkToAFolder)
{
    const std::string top = write("a/one.png", png_image());
    const std::string deep = write("a/b/c/d/e/two.png", png_image());
    write("elsewhere/three.png", png_image());
    ASSERT_EQ(symlink("..", path("a/b/up").c_str()), 0);
    ASSERT_EQ(symlink("../elsewhere", path("a/aside").c_str()), 0);
    ASSERT_EQ(symlink("../elsewhere/three.png", path("a/linked.png").c_str()), 0);
    EXPECT_EQ(catalogue_of({path("a")}).paths(), (strings{deep, path("a/linked.png"), top}));
    EXPECT_EQ(catalogue_of({path("a/aside")}).paths(), strings{path("a/aside/three.png")});
}

TEST_F(ImageCatalog, CountsOtherFilesOfAFolderAndReportsThemOnlyWhenNamed)
{
    const std::string text = write("folder/notes.txt", "BMW, not a bitmap\n");
    write("folder/nothing", "");
    write("folder/image.png", png_image());
    ASSERT_EQ(mkfifo(path("folder/pipe").c_str(), 0600), 0);
    const child_result walked = catalog({path("folder")});
    EXPECT_EQ(walked.status, 0) << walked.describe();
    EXPECT_NE(walked.out.find("\n0 problems, 3 other files skipped, 1 of them empty\n"), std::string::npos)
        << walked.out;
    const catalogue_document json = catalogue_of({path("folder")});
    EXPECT_EQ(json.head.at("skipped"), "3");
    EXPECT_EQ(json.head.at("empty"), "1");

    const json_members named = catalogue_of({text}).entry(text);
    EXPECT_EQ(named.at("problem"), "is no image of a known kind");
    EXPECT_EQ(named.at("md5"), md5sum(text));
}

TEST_F(ImageCatalog, ReportsAnEmptyFileOfAFolderWhoseNameSaysImage)
{
    strings expected;
    for (const char *name :
         {"a.BMP", "b.dib", "c.jfif", "d.jpe", "e.jpeg", "f.Jpg", "g.png", "h.tif", "i.tiff"})
        expected.push_back(write(name, ""));
    for (const char *name : {"jpg", ".gitkeep", "a.pn", "a.pngx", "a.png.txt"})
        write(name, "");
    const catalogue_document read = catalogue_of({path("")});
    EXPECT_EQ(read.paths(), expected);
    for (const json_members &entry : read.entries)
        EXPECT_EQ(entry.at("problem"), "is empty");
    EXPECT_EQ(read.head.at("empty"), "5");
}

TEST_F(ImageCatalog, IsContentWithAnEmptyFolder)
{
    fs::create_directory(path("empty"));
    const child_result table = catalog({path("empty")});
    EXPECT_EQ(table.status, 0) << table.describe();
    EXPECT_NE(table.out.find("total  0 images  0 bytes\n0 problems, 0 other files skipped\n"),
              std::string::npos)
        << table.out;
    const catalogue_document json = catalogue_of({path("empty")});
    EXPECT_EQ(json.paths(), strings{});
    EXPECT_EQ(json.head.at("images"), "0");
}

// ---- Paths that are too long

namespace {

// Folders inside each other, from `top` on, until the path of the deepest is `length` characters long.
std::string make_deep_folder(const std::string &top, size_t length)
{
    std::string deepest = top;
    EXPECT_EQ(chdir(top.c_str()), 0);
    while (deepest.size() < length) {
        const size_t rest = length - deepest.size() - 1;
        const std::string name(std::min<size_t>(rest > 201 ? 199 : rest, 200), 'd');
        EXPECT_EQ(mkdir(name.c_str(), 0700), 0);
        EXPECT_EQ(chdir(name.c_str()), 0);
        deepest += "/" + name;
    }
    return deepest;
}

void make_file_here(const char *name)
{
    FILE *file = fopen(name, "w");
    ASSERT_NE(file, nullptr);
    fclose(file);
}

}  // namespace

TEST_F(ImageCatalog, MakesOneProblemOfAFolderWhoseFilesLieTooDeep)
{
    const std::string good = write("top/good.png", png_image());
    const std::string deep = make_deep_folder(path("top"), PATH_MAX - 10);
    for (const char *name : {"short", "long-name-1.png", "long-name-2.png", "long-name-3.png"})
        make_file_here(name);
    ASSERT_EQ(mkdir("a-folder-with-a-name", 0700), 0);
    ASSERT_EQ(chdir("/"), 0);
    const catalogue_document read = catalogue_of({path("top")});
    EXPECT_EQ(read.entries.size(), 2u);
    EXPECT_EQ(read.entry(deep).at("problem"), "holds 4 whose paths are too long: File name too long");
    EXPECT_EQ(read.entry(good).at("problem"), "null");
    ASSERT_EQ(run_command({"rm", "-r", path("top")}).status, 0);
}

// ---- Spellings

TEST_F(ImageCatalog, ListsAFileOnceHoweverItIsSpelled)
{
    const std::string file = write("folder/image.png", png_image());
    const std::string text = write("folder/notes.txt", "no image\n");
    ASSERT_EQ(symlink("folder", path("link").c_str()), 0);
    const child_result run = catalog_in(
        path("folder"), {"--json", "./image.png", "image.png", file, "../folder/./image.png", ".", "../link",
                         "../link/image.png", "..//folder//image.png", text, "notes.txt"});
    const catalogue_document read = read_catalogue(run);
    EXPECT_EQ(read.paths(), (strings{"./image.png", text})) << "the first spelling of each";
    EXPECT_EQ(read.head.at("images"), "1");
    EXPECT_EQ(read.head.at("skipped"), "0");
}

TEST_F(ImageCatalog, ListsEveryNameOfAFile)
{
    const std::string file = write("a.png", png_image());
    fs::create_hard_link(file, path("b.png"));
    ASSERT_EQ(symlink("a.png", path("c.png").c_str()), 0);
    EXPECT_EQ(catalogue_of({path("")}).paths(), (strings{file, path("b.png"), path("c.png")}));
}

TEST_F(ImageCatalog, ListsWhatIsMissingOnce)
{
    EXPECT_EQ(
        catalogue_of({path("missing"), path("missing"), path("no-folder/a"), path("no-folder/a")}).paths(),
        (strings{path("missing"), path("no-folder/a")}));
}

// ---- Exclusions

class Exclusion : public ImageCatalog {
protected:
    void SetUp() override
    {
        for (const char *name : {"top/a.png", "top/b.tif", "top/.cache/c.png", "top/sub/d.png"})
            write(name, png_image());
    }
    strings left(strings arguments) const
    {
        arguments.insert(arguments.begin(), "--json");
        return read_catalogue(catalog_in(path(""), arguments)).paths();
    }
};

TEST_F(Exclusion, LeavesOutFilesAndFoldersOfAName)
{
    EXPECT_EQ(left({"-x", "*.png", "top"}), strings{"top/b.tif"});
    EXPECT_EQ(left({"--exclude=.*", "--exclude", "sub", "top"}), (strings{"top/a.png", "top/b.tif"}));
    EXPECT_EQ(left({"-xd.png", "top/sub/d.png", "top/a.png"}), strings{"top/a.png"});
}

TEST_F(Exclusion, ComparesAPatternWithASlashWithTheWholePath)
{
    EXPECT_EQ(left({"-x", "top/s*/d.png", "top"}), (strings{"top/.cache/c.png", "top/a.png", "top/b.tif"}));
    EXPECT_EQ(left({"-x", "*/.cache", "-x", "sub/d.png", "top"}),
              (strings{"top/a.png", "top/b.tif", "top/sub/d.png"}));
}

TEST_F(Exclusion, SparesTheFolderItself)
{
    EXPECT_EQ(left({"-x", ".*", "."}), (strings{"./top/a.png", "./top/b.tif", "./top/sub/d.png"}));
}

// ---- Names on standard input

TEST_F(ImageCatalog, ReadsPathsFromStandardInput)
{
    write("one two.png", png_image());
    write("folder/three.png", png_image());
    write("names", "one two.png\n\nfolder\nmissing\nlast");
    const child_result run = catalog_by_shell("cd \"$1\" && \"$0\" --json names - <names", {path("")});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(read_catalogue(run).paths(),
              (strings{"folder/three.png", "last", "missing", "names", "one two.png"}));
}

TEST_F(ImageCatalog, ReadsPathsThatEndWithAZeroByte)
{
    write("new\nline.png", png_image());
    write("other.png", png_image());
    write("names", std::string("new\nline.png\0other.png\0", 23));
    const child_result run = catalog_by_shell("cd \"$1\" && \"$0\" --json -0 - <names", {path("")});
    EXPECT_EQ(run.status, 0) << run.describe();
    EXPECT_EQ(read_catalogue(run).paths(), (strings{"new\nline.png", "other.png"}));
}

TEST_F(ImageCatalog, ReportsAPathOnStandardInputThatIsTooLong)
{
    const std::string good = write("good.png", png_image());
    write("names", std::string(70000, 'x') + "\n" + good + "\n");
    const child_result run = catalog_by_shell("\"$0\" --json - <\"$1\"", {path("names")});
    EXPECT_EQ(run.status, 1);
    const catalogue_document read = read_catalogue(run);
    ASSERT_EQ(read.entries.size(), 2u);
    EXPECT_EQ(read.entry(good).at("problem"), "null");
    EXPECT_EQ(read.entry(std::string(PATH_MAX - 1, 'x')).at("problem"),
              "cannot be opened: File name too long");
}

TEST_F(ImageCatalog, ReportsStandardInputThatCannotBeRead)
{
    const child_result run = catalog_by_shell("\"$0\" - <\"$1\"", {path("")});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.err, "image_catalog:  the names on standard input cannot be read\n");
}
