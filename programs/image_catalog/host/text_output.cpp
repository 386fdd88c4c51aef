#include "text_output.h"

#include "foundation/os.h"

#include <errno.h>
#include <string.h>

namespace {

void write_all(text_output &output)
{
    UINT done = 0;
    while (done < output.used && !output.has_failed) {
        const LONG step = OS_write(output.descriptor, output.buffer + done, output.used - done);
        if (step > 0)
            done += static_cast<UINT>(step);
        else
            output.has_failed = step == 0 || errno != EINTR;
    }
    output.used = 0;
}

}  // namespace

void output_open(text_output &output, INT descriptor)
{
    output.descriptor = descriptor;
    output.has_failed = false;
    output.used = 0;
}

void output_bytes(text_output &output, const CHAR *bytes, uint64_t count)
{
    while (count > 0) {
        if (output.used == OUTPUT_BUFFER_SIZE)
            write_all(output);
        const uint64_t room = OUTPUT_BUFFER_SIZE - output.used;
        const uint64_t piece = count < room ? count : room;
        OS_memcpy(output.buffer + output.used, bytes, piece);
        output.used += static_cast<UINT>(piece);
        bytes += piece;
        count -= piece;
    }
}

void output_text(text_output &output, const CHAR *text)
{
    output_bytes(output, text, strlen(text));
}

void output_padding(text_output &output, uint64_t count)
{
    for (; count > 0; --count)
        output_bytes(output, " ", 1);
}

void output_number(text_output &output, uint64_t number)
{
    CHAR text[24];
    OS_sprintf(text, "%llu", static_cast<unsigned long long>(number));
    output_text(output, text);
}

bool output_flush(text_output &output)
{
    write_all(output);
    return !output.has_failed;
}
