// On a terminal: its width, the progress of a run, and Ctrl-C.

#include "catalog_run.h"
#include "image_bytes.h"
#include "support/files.h"

#include <signal.h>
#include <unistd.h>

using strings = std::vector<std::string>;

namespace {

// `script` is what on_terminal.py reads.
child_result on_terminal(size_t columns, const std::string &script, const strings &arguments)
{
    strings command = {"sh",
                       "-c",
                       "printf '%s' \"$0\" | \"$@\"",
                       script,
                       "python3",
                       std::string(SOURCE_DIRECTORY) + "/tests/programs/image_catalog/on_terminal.py",
                       std::to_string(columns),
                       IMAGE_CATALOG};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return run_command(command, SANITIZER_OPTIONS);
}

// The terminal's lines, each as it looks in the end: what follows a return overwrites what stood there.
strings screen_lines(const std::string &output)
{
    strings lines;
    for (const std::string &raw : lines_of(output)) {
        std::string line;
        size_t column = 0;
        for (const char byte : raw) {
            if (byte == '\r') {
                column = 0;
            } else {
                line.resize(std::max(line.size(), column + 1), ' ');
                line[column++] = byte;
            }
        }
        line.erase(line.find_last_not_of(' ') + 1);
        lines.push_back(line);
    }
    return lines;
}

// Between two returns or line ends the cursor moves to the right only.
size_t longest_stretch(const std::string &output)
{
    size_t longest = 0;
    size_t length = 0;
    for (const char byte : output) {
        length = byte == '\r' || byte == '\n' ? 0 : length + 1;
        longest = std::max(longest, length);
    }
    return longest;
}

}  // namespace

TEST_F(ImageCatalog, FitsItsTableIntoTheTerminal)
{
    for (const size_t columns : {size_t{80}, size_t{200}}) {
        const child_result run = on_terminal(columns, "", {SAMPLES});
        for (const std::string &line : screen_lines(run.out)) {
            const bool is_problem = line.rfind(SAMPLES, 0) == 0;  // said in full
            EXPECT_TRUE(is_problem || line.size() <= columns) << line;
        }
    }
    const std::string wide = on_terminal(200, "", {SAMPLES}).out;
    EXPECT_NE(wide.find("84ffff37"), std::string::npos) << wide;
}

TEST_F(ImageCatalog, ShowsProgressOnATerminalAndTakesItAway)
{
    for (int i = 0; i < 40; ++i)
        write(std::to_string(1000 + i), png_image());
    const child_result run = on_terminal(80, "", {"--jobs", "1", path("")});
    EXPECT_EQ(run.status, 0) << run.describe();
    EXPECT_NE(run.out.find("\r 40% of 40 files"), std::string::npos) << run.out;
    EXPECT_EQ(screen_lines(run.out).at(0).rfind("Path ", 0), 0u) << run.out;

    const child_result elsewhere = catalog({path("")});
    EXPECT_EQ(elsewhere.err, "");
    EXPECT_EQ(elsewhere.out.find("% of"), std::string::npos);
}

TEST_F(ImageCatalog, LetsNoProgressScrollANarrowTerminal)
{
    for (int i = 0; i < 40; ++i)
        write(std::to_string(i), "no image\n");
    for (const size_t columns : {size_t{1}, size_t{2}, size_t{5}, size_t{12}}) {
        const child_result run = on_terminal(columns, "", {path("")});
        const std::string progress = run.out.substr(0, run.out.find("total"));
        EXPECT_LT(longest_stretch(progress), columns) << run.out;
    }
}

// ---- Interruption. The names come from the terminal, so the run lasts until it is interrupted.

TEST_F(ImageCatalog, EndsAnInterruptedRunWithWhatIsKnownSoFar)
{
    for (int i = 0; i < 40; ++i)
        write(std::to_string(1000 + i), png_image());
    const child_result run =
        on_terminal(80, "type " + path("") + "^M\nafter % of\ntype ^C\n", {"--jobs", "2", "-"});
    EXPECT_EQ(run.status, 128 + SIGINT) << run.describe();
    const strings lines = screen_lines(run.out);
    ASSERT_GE(lines.size(), 4u);
    EXPECT_EQ(lines[1].rfind("Path ", 0), 0u) << run.out;  // line 0 is the echo of the name
    EXPECT_NE(run.out.find("Interrupted: "), std::string::npos) << run.out;
}

TEST_F(ImageCatalog, SaysInJsonThatItWasInterrupted)
{
    const std::string good = write("good.png", png_image());
    const std::string script =
        "import signal, subprocess, sys\n"
        "run = subprocess.Popen(sys.argv[1:], stdin=subprocess.PIPE, stdout=subprocess.PIPE)\n"
        "run.stdin.write(b'x' * 70000 + b'\\n')\n"  // more than a pipe holds: it is reading
        "run.stdin.flush()\n"
        "run.send_signal(signal.SIGTERM)\n"
        "sys.stdout.buffer.write(run.stdout.read())\n"
        "sys.exit(run.wait() != -signal.SIGTERM)\n";
    const child_result run =
        run_command({"python3", "-c", script, IMAGE_CATALOG, "--json", good, "-"}, SANITIZER_OPTIONS);
    EXPECT_EQ(run.status, 0) << run.describe();
    EXPECT_EQ(read_catalogue(run).head.at("interrupted"), "true");
}
