// Failures of the file calls: each platform call is made once, and its failure is passed on.

#include "failures/scenario.h"
#include "support/scratch_directory.h"

#include "foundation/os.h"

#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <memory>

namespace {

constexpr char CONTENT[] = "content";
constexpr CHAR UNTOUCHED[] = "########";

std::unique_ptr<scratch_directory> directory;
std::string path;
INT descriptor;
LONG answer;
CHAR buffer[sizeof UNTOUCHED];

INT opened()
{
    return OS_open(path.c_str(), O_RDWR, 0);
}

// A file with the content, open.
void set_up()
{
    directory = std::make_unique<scratch_directory>();
    path = directory->file("some file");
    descriptor = OS_create(path.c_str());
    OS_write(descriptor, CONTENT, 7);
    OS_close(descriptor);
    descriptor = opened();
    strcpy(buffer, UNTOUCHED);
}

void clean_up()
{
    OS_close(descriptor);
    directory.reset();
}

// The descriptor still reads and writes.
void use_file()
{
    CHAR byte = '!';
    EXPECT_EQ(OS_seek(descriptor, 0, SEEK_SET), 0);
    EXPECT_EQ(OS_write(descriptor, &byte, 1), 1);
    EXPECT_EQ(OS_seek(descriptor, -1, SEEK_CUR), 0);
    EXPECT_EQ(OS_read(descriptor, &byte, 1), 1);
    EXPECT_EQ(byte, '!');
}

void use_new_descriptor()
{
    if (answer >= 0) {
        EXPECT_EQ(OS_close(static_cast<INT>(answer)), 0);
    }
    use_file();
}

std::string number()
{
    return words(answer);
}

std::string descriptor_or_not()
{
    return answer >= 0 ? "a descriptor" : words(answer);
}

}  // namespace

scenarios file_scenarios()
{
    scenarios list = {
        {.name = "OS_create",
         .act = [] { answer = OS_create(path.c_str()); },
         .result = descriptor_or_not,
         .use = use_new_descriptor,
         .outcomes = {{"nothing", "a descriptor"}, {"creat64 1", "-1"}}},
        {.name = "OS_open",
         .act = [] { answer = OS_open(path.c_str(), O_RDONLY, 0); },
         .result = descriptor_or_not,
         .use = use_new_descriptor,
         .outcomes = {{"nothing", "a descriptor"}, {"open64 1", "-1"}}},
        {.name = "OS_close",
         .act = [] { answer = OS_close(descriptor); },
         .result = number,
         .use =
             [] {
                 if (answer == 0)
                     descriptor = opened();
                 use_file();
             },
         .outcomes = {{"nothing", "0"}, {"close 1", "-1"}}},
        {.name = "OS_delete",
         .act = [] { answer = OS_delete(path.c_str()); },
         .result = [] { return number() + (access(path.c_str(), F_OK) == 0 ? ", is there" : ", is gone"); },
         .outcomes = {{"nothing", "0, is gone"}, {"remove 1", "-1, is there"}}},
        {.name = "OS_seek",
         .act = [] { answer = OS_seek(descriptor, 5, SEEK_SET); },
         .result = [] { return words(answer, ", at ", lseek(descriptor, 0, SEEK_CUR)); },
         .outcomes = {{"nothing", "5, at 5"}, {"lseek64 1", "-1, at 0"}}},
        {.name = "OS_read",
         .act = [] { answer = OS_read(descriptor, buffer, 7); },
         .result = [] { return words(answer, ", ", buffer); },
         .outcomes = {{"nothing", "7, content#"}, {"read 1", "-1, ########"}}},
        {.name = "OS_write",
         .act = [] { answer = OS_write(descriptor, "C", 1); },
         .result =
             [] {
                 EXPECT_EQ(pread(descriptor, buffer, 7, 0), 7);
                 return words(answer, ", ", buffer);
             },
         .outcomes = {{"nothing", "1, Content#"}, {"write 1", "-1, content#"}}},
        {.name = "OS_size_change",
         .act = [] { answer = OS_size_change(descriptor, 3); },
         .result = [] { return words(answer, ", length ", lseek(descriptor, 0, SEEK_END)); },
         .outcomes = {{"nothing", "0, length 3"}, {"ftruncate64 1", "-1, length 7"}}},
    };
    for (scenario &each : list) {
        each.load = set_up;
        if (!each.use)
            each.use = use_file;
        each.clean_up = clean_up;
    }
    return list;
}
