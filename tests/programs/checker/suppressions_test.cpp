// Findings that are known and not wanted.

#include "checker_run.h"

namespace {

std::string suppression(const std::string &lines)
{
    return "# of this test\n{\n   known\n" + lines + "}\n";
}

class Suppression : public Checker {
protected:
    child_result run_with(const std::string &content, const std::string &mistake) const
    {
        return qv_check({"--suppress", write("known", content), MISTAKEN_HOST, mistake});
    }
    void expect_suppressed(const std::string &lines, const std::string &mistake) const
    {
        const child_result run = run_with(suppression(lines), mistake);
        EXPECT_TRUE(run.succeeded());
        EXPECT_EQ(run.err, "") << lines;
    }
    void expect_told(const std::string &lines, const std::string &mistake) const
    {
        EXPECT_NE(run_with(suppression(lines), mistake).err, "") << lines;
    }
    void expect_refused(const std::string &content, const std::string &complaint) const
    {
        const child_result run = run_with(content, "wrong_tag");
        EXPECT_TRUE(run.has_exited && run.status == 125) << run.describe();
        EXPECT_NE(run.err.find(complaint), std::string::npos) << run.err;
    }
};

}  // namespace

TEST_F(Suppression, IsByKind)
{
    expect_suppressed("   qv-check:wrong-tag\n", "wrong_tag");
    expect_suppressed("   qv-check:*\n", "wrong_tag");
    expect_suppressed("   qv-check:wrong-*\n", "wrong_tag");
    expect_told("   qv-check:leak\n", "wrong_tag");
}

TEST_F(Suppression, IsByAnyOfTheFindingsPlaces)
{
    expect_suppressed("   qv-check:wrong-tag\n   place:*" + site_of("wrong tag: released") + "\n",
                      "wrong_tag");
    expect_suppressed("   qv-check:wrong-tag\n   place:*" + site_of("wrong tag: recorded") + "\n",
                      "wrong_tag");
    expect_suppressed("   qv-check:leak\n   place:*mistaken_host.c:*\n", "leaks");
    expect_told("   qv-check:wrong-tag\n   place:*" + site_of("twice: first") + "\n", "wrong_tag");
}

TEST_F(Suppression, IsByTheStackFromTheTop)
{
    const std::string kind = "   qv-check:wrong-tag\n";
    expect_suppressed(kind + "   fun:wrong_tag\n   fun:main\n", "wrong_tag");
    expect_suppressed(kind + "   fun:wrong_???\n", "wrong_tag");
    expect_suppressed(kind + "   obj:*mistaken_host\n   fun:main\n", "wrong_tag");
    expect_suppressed(kind + "   ...\n   fun:main\n", "wrong_tag");
    expect_told(kind + "   fun:main\n", "wrong_tag");
    expect_told(kind + "   fun:wrong_tag\n   fun:wrong_tag\n", "wrong_tag");
}

TEST_F(Suppression, LeavesOtherFindingsAndCountsItself)
{
    const std::string known = suppression("   qv-check:leak\n   place:*" + site_of("leaks: large") + "\n");
    const child_result run = run_with(known, "leaks");
    EXPECT_EQ(run.err.find("5000 bytes"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("300 bytes"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("== 2 findings, 1 suppressed\n"), std::string::npos) << run.err;
}

TEST_F(Suppression, DoesNotEndTheProcessWhereFindingsDo)
{
    const std::string known = write("known", suppression("   qv-check:wrong-tag\n"));
    const child_result run = qv_check({"--fatal", "--suppress", known, MISTAKEN_HOST, "wrong_tag"});
    EXPECT_TRUE(run.succeeded()) << run.describe();
}

TEST_F(Suppression, ComesFromSeveralFiles)
{
    const std::string large =
        write("large", suppression("   qv-check:leak\n   place:*" + site_of("leaks: large") + "\n"));
    const std::string others =
        write("others", suppression("   qv-check:leak\n   place:*" + site_of("leaks: small") + "\n") +
                            suppression("   qv-check:leak\n   place:*" + site_of("leaks: of both") + "\n"));
    const child_result run = qv_check({"--suppress", large, "--suppress", others, MISTAKEN_HOST, "leaks"});
    EXPECT_EQ(run.err, "");
}

TEST_F(Suppression, IsRefusedWithItsLineWhenItIsNoSuppression)
{
    expect_refused("known\n", ":1: \"{\" is expected");
    expect_refused("{\n}\n", ":2: a name is expected");
    expect_refused("{\nknown\nqv-check:unknown\n}\n", ":3: qv-check:KIND is expected");
    expect_refused("{\nknown\nqv-check:leak\nfunction:main\n}\n", ":4: place:");
    expect_refused("{\nknown\nqv-check:leak\n", "does not end");
}
