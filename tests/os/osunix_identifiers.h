// What the tests of identifiers and GUIDs share: an identifier source of the test's own.
#pragma once

#include "os/osunix_fixture.h"
#include "support/platform_trace.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <stdexcept>
#include <string>

// For as long as it lives, the identifier source holds `text`.
class identifier_source {
public:
    explicit identifier_source(const std::string &text)
        : text_(text), replaced_(fopen_call, [this](const char *, const char *) { return open_text(); })
    {
    }

private:
    FILE *open_text() const
    {
        FILE *stream = tmpfile();
        if (stream == nullptr || fwrite(text_.data(), 1, text_.size(), stream) != text_.size())
            throw std::runtime_error("no identifier source of the test's own");
        rewind(stream);
        return stream;
    }

    std::string text_;
    replaced_call<FILE *(const char *, const char *)> replaced_;
};

// For as long as it lives, the identifier source cannot be opened.
class missing_identifier_source {
private:
    replaced_call<FILE *(const char *, const char *)> replaced_{fopen_call,
                                                                [](const char *, const char *) -> FILE * {
                                                                    errno = EACCES;
                                                                    return nullptr;
                                                                }};
};

// An identifier source that is never read: the three calls that the platform gets are answered by the test.
class answering_identifier_source {
public:
    // The line that reading gives, or null for a reading that fails.
    explicit answering_identifier_source(const char *line) : line_(line) {}

    FILE *stream() { return reinterpret_cast<FILE *>(this); }

private:
    char *read(char *buffer) const
    {
        if (line_ == nullptr)
            return nullptr;
        memcpy(buffer, line_, strlen(line_) + 1);
        return buffer;
    }

    const char *line_;
    replaced_call<FILE *(const char *, const char *)> fopen_{fopen_call, [this](const char *, const char *) {
                                                                 return stream();
                                                             }};
    replaced_call<char *(char *, int, FILE *)> fgets_{fgets_call, [this](char *buffer, int, FILE *) {
                                                          return read(buffer);
                                                      }};
    replaced_call<int(FILE *)> fclose_{fclose_call, [](FILE *) {
                                           return -1;
                                       }};
};
