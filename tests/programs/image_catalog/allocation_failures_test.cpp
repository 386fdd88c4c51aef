// Every allocation that the catalogue, the library or the C library below them makes is refused in turn.

#include "catalog_run.h"
#include "support/files.h"

#include <filesystem>
#include <fstream>
#include <iostream>

namespace fs = std::filesystem;

namespace {

struct heap_facts {
    unsigned allocations = 0;
    unsigned unreleased = 0;
};

class CatalogueWithoutMemory : public ImageCatalog, public testing::WithParamInterface<const char *> {
protected:
    void SetUp() override
    {
#ifndef IMAGE_CATALOG_WITH_FAILING_HEAP
        GTEST_SKIP() << "a sanitizer's own heap cannot be put in the C library's place";
#else
        fs::create_directory(path("host"));
        fs::copy_file(IMAGE_CATALOG_WITH_FAILING_HEAP, path("host/image_catalog"));
        give_module(PNG_MODULE, "png");
        give_module(JPEG_MODULE, "jpeg");
        fs::create_directory(path("images"));
        for (const std::string name : {"screen.png", "web-jfif.jpg"})
            fs::copy_file(SAMPLES + "/" + name, path("images/" + name));
#endif
    }

    child_result run_refusing(const std::string &variable, unsigned number)
    {
        return run_program(path("host/image_catalog"), {"--jobs", "1", GetParam(), path("images")},
                           {variable + "=" + std::to_string(number), "HEAP_REPORT=" + path("report")});
    }

    heap_facts facts_of_last_run()
    {
        heap_facts facts;
        std::string word;
        std::ifstream(path("report")) >> word >> facts.allocations >> word >> facts.unreleased;
        return facts;
    }

    // Until a run makes fewer allocations than the one that was to be refused.
    void refuse_each(const std::string &variable)
    {
        for (unsigned number = 1;; ++number) {
            SCOPED_TRACE(variable + " " + std::to_string(number));
            fs::remove(path("report"));
            const child_result run = run_refusing(variable, number);
            const heap_facts facts = facts_of_last_run();
            EXPECT_EQ(facts.unreleased, 0U) << run.describe();
            if (facts.allocations < number) {
                EXPECT_EQ(run.status, 0) << run.describe();
                EXPECT_GT(number, 20U) << "hardly anything was refused";
                std::cout << "refused allocations " << number - 1 << "\n";
                return;
            }
            if (run.status == 0)
                EXPECT_EQ(without_creation(run.out), complete_output_) << "a silent loss\n" << run.describe();
            else
                EXPECT_NE(run.out + run.err, "") << "a failure without a word";
            if (HasFailure())
                return;
        }
    }

    void remember_complete_output()
    {
        complete_output_ = without_creation(run_refusing("NONE", 0).out);
    }

private:
    std::string complete_output_;
};

}  // namespace

// A run that lacks memory ends by itself, says so unless nothing is missing, and releases what it had.
TEST_P(CatalogueWithoutMemory, LosesNothingSilently)
{
    remember_complete_output();
    refuse_each("FAIL_ALLOCATION");
}

TEST_P(CatalogueWithoutMemory, EndsInGoodOrderWhenNoneIsLeft)
{
    remember_complete_output();
    refuse_each("FAIL_ALLOCATION_AND_LATER");
}

INSTANTIATE_TEST_SUITE_P(As, CatalogueWithoutMemory, testing::Values("--json", "--full"),
                         [](const auto &tested) { return std::string(tested.param).substr(2); });
