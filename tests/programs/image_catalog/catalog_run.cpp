#include "catalog_run.h"

#include "support/files.h"

#include <nlohmann/json.hpp>

#include <regex.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace fs = std::filesystem;

child_result run_program(const std::string &program, std::vector<std::string> arguments,
                         const std::vector<std::string> &environment)
{
    std::vector<std::string> variables = SANITIZER_OPTIONS;
    variables.insert(variables.end(), environment.begin(), environment.end());
    arguments.insert(arguments.begin(), program);
    child_result run = run_command(arguments, variables);
    EXPECT_TRUE(run.has_exited && run.status <= 2) << run.describe();
    return run;
}

child_result catalog(const std::vector<std::string> &arguments, const std::vector<std::string> &environment)
{
    return run_program(IMAGE_CATALOG, arguments, environment);
}

child_result catalog_by_shell(const std::string &command, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {"-c", command, IMAGE_CATALOG});
    return run_program("sh", arguments);
}

child_result catalog_in(const std::string &folder, const std::vector<std::string> &arguments)
{
    std::vector<std::string> all = {folder};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return catalog_by_shell("cd \"$1\" && shift && exec \"$0\" \"$@\"", all);
}

namespace {

std::string text_of(const nlohmann::json &value)
{
    return value.is_string() ? value.get<std::string>() : value.dump();
}

json_members members_of(const nlohmann::json &object)
{
    json_members members;
    for (const auto &[name, value] : object.items())
        if (!value.is_array())
            members[name] = text_of(value);
    return members;
}

}  // namespace

json_members catalogue_document::entry(const std::string &path) const
{
    json_members found;
    size_t count = 0;
    for (const json_members &candidate : entries) {
        if (candidate.at("path") != path)
            continue;
        found = candidate;
        ++count;
    }
    EXPECT_EQ(count, 1u) << "entries of " << path;
    return found;
}

std::vector<std::string> catalogue_document::paths() const
{
    std::vector<std::string> all;
    for (const json_members &entry : entries)
        all.push_back(entry.at("path"));
    return all;
}

catalogue_document read_catalogue(const child_result &run)
{
    const nlohmann::json json = nlohmann::json::parse(run.out, nullptr, false);
    EXPECT_TRUE(json.is_object() && json.contains("entries") && json.contains("kinds")) << run.describe();
    catalogue_document document;
    if (!json.is_object())
        return document;
    document.head = members_of(json);
    for (const nlohmann::json &entry : json.value("entries", nlohmann::json::array()))
        document.entries.push_back(members_of(entry));
    for (const nlohmann::json &kind : json.value("kinds", nlohmann::json::array()))
        document.kinds[kind.value("kind", "")] = members_of(kind);
    return document;
}

catalogue_document catalogue_of(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "--json");
    const child_result run = catalog(arguments);
    EXPECT_EQ(run.err, "");
    return read_catalogue(run);
}

std::string join(const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines)
        text += line + "\n";
    return text;
}

std::string without_creation(const std::string &output)
{
    std::string rest;
    for (const std::string &line : lines_of(output))
        if (line.rfind("Catalogue created ", 0) != 0 && line.rfind("  \"created", 0) != 0 &&
            line.rfind("  \"catalogue\": ", 0) != 0)
            rest += line + "\n";
    return rest;
}

bool matches_pattern(const std::string &text, const std::string &pattern)
{
    regex_t expression;
    EXPECT_EQ(regcomp(&expression, ("^(" + pattern + ")$").c_str(), REG_EXTENDED | REG_NOSUB), 0) << pattern;
    const bool is_match = regexec(&expression, text.c_str(), 0, nullptr, 0) == 0;
    regfree(&expression);
    return is_match;
}

std::vector<std::string> table_lines(const child_result &run)
{
    std::vector<std::string> lines = lines_of(run.out);
    lines.erase(std::find(lines.begin(), lines.end(), ""), lines.end());
    return lines;
}

std::string md5sum(const std::string &path)
{
    const child_result run = run_command({"md5sum", "--zero", "--", path});
    EXPECT_TRUE(run.succeeded()) << run.describe();
    return run.out.substr(0, 32);
}

std::vector<std::string> good_samples()
{
    std::vector<std::string> files;
    for (const auto &entry : fs::directory_iterator(SAMPLES))
        if (entry.is_regular_file())
            files.push_back(entry.path().string());
    std::sort(files.begin(), files.end());
    return files;
}

std::string ImageCatalog::write(const std::string &name, const std::string &bytes) const
{
    const fs::path file = path(name);
    fs::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << bytes;
    EXPECT_EQ(fs::file_size(file), bytes.size());
    return file.string();
}

std::string ImageCatalog::lonely_host() const
{
    fs::create_directories(path("host"));
    fs::copy_file(IMAGE_CATALOG, path("host/image_catalog"));
    return path("host/image_catalog");
}

void ImageCatalog::give_module(const std::string &file, const std::string &kind) const
{
    fs::copy_file(file, path("host/libQV" + kind + "17.so"));
}
