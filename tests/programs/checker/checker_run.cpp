#include "checker_run.h"

#include "support/files.h"

#include <algorithm>
#include <fstream>

child_result qv_check(const std::vector<std::string> &arguments, const std::vector<std::string> &environment)
{
    std::vector<std::string> command_line = {QV_CHECK};
    command_line.insert(command_line.end(), arguments.begin(), arguments.end());
    return run_command(command_line, environment);
}

json_lines read_json_lines(const std::string &text)
{
    json_lines objects;
    for (const std::string &line : lines_of(text)) {
        objects.push_back(nlohmann::json::parse(line, nullptr, false));
        EXPECT_TRUE(objects.back().is_object()) << line;
    }
    return objects;
}

std::string site_of(const std::string &comment)
{
    const std::string name = "mistaken_host.c";
    const std::vector<std::string> lines =
        lines_of(content_of(std::string(SOURCE_DIRECTORY) + "/tests/programs/checker/" + name));
    const auto line = std::find_if(lines.begin(), lines.end(), [&](const std::string &each) {
        return each.find("/* " + comment + " */") != std::string::npos;
    });
    EXPECT_NE(line, lines.end()) << "no line has the comment " << comment;
    return name + ":" + std::to_string(line - lines.begin() + 1);
}

std::string Checker::write(const std::string &name, const std::string &content) const
{
    std::ofstream(path(name)) << content;
    return path(name);
}
