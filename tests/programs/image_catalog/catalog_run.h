// The image catalogue's host program, run from outside, and what it prints as JSON, read by a real parser.
#pragma once

#include "support/build_facts.h"
#include "support/child_process.h"
#include "support/scratch_directory.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

inline const std::string SAMPLES = std::string(SOURCE_DIRECTORY) + "/programs/image_catalog/samples";

// An exit status that no program under test has of its own, for the reports of sanitizers.
inline const std::vector<std::string> SANITIZER_OPTIONS = {
    "ASAN_OPTIONS=exitcode=99", "TSAN_OPTIONS=exitcode=99", "UBSAN_OPTIONS=exitcode=99"};

// Statuses above 2, and deaths, are failures of the test.
child_result run_program(const std::string &program, std::vector<std::string> arguments,
                         const std::vector<std::string> &environment = {});
child_result catalog(const std::vector<std::string> &arguments,
                     const std::vector<std::string> &environment = {});
// A shell's command line, in which "$0" is the program and "$1" and so on are `arguments`.
child_result catalog_by_shell(const std::string &command, std::vector<std::string> arguments);
// With `folder` as the current one, so that what is printed does not depend on where the project lies.
child_result catalog_in(const std::string &folder, const std::vector<std::string> &arguments);

// A JSON object's members as texts; null is "null".
using json_members = std::map<std::string, std::string>;

struct catalogue_document {
    json_members head;  // everything but the two lists
    std::vector<json_members> entries;
    std::map<std::string, json_members> kinds;  // by name

    // The entry of a path; a failure of the test, and no members, when there is not exactly one.
    json_members entry(const std::string &path) const;
    std::vector<std::string> paths() const;
};

// What a run with --json printed; a failure of the test when that is no JSON.
catalogue_document read_catalogue(const child_result &run);
// Run with --json in front of the arguments.
catalogue_document catalogue_of(std::vector<std::string> arguments);

std::string join(const std::vector<std::string> &lines);
// What a run says about its files, told apart from what differs by nature.
std::string without_creation(const std::string &output);
// The whole of `text`, by an extended regular expression.
bool matches_pattern(const std::string &text, const std::string &pattern);
// The lines of a run's table, its title line first.
std::vector<std::string> table_lines(const child_result &run);

std::string md5sum(const std::string &path);
std::vector<std::string> good_samples();

// A test with files of its own.
class ImageCatalog : public testing::Test {
protected:
    std::string path(const std::string &name) const { return scratch.file(name); }
    std::string write(const std::string &name, const std::string &bytes) const;

    // A copy of the host without modules, in a folder of its own.
    std::string lonely_host() const;
    void give_module(const std::string &file, const std::string &kind) const;

    const scratch_directory scratch;
};
