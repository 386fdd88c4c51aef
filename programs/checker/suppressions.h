// Suppressions: findings that are known and not wanted, in the manner of valgrind's files.
//
//   {
//      a name
//      qv-check:KIND           the kind of finding; * for any
//      place:FILE:LINE         any of the places that the finding names
//      fun:FUNCTION            the frames of its stack, from the top; "..." stands for any number of them
//      obj:FILE
//   }
//
// All patterns may have the shell's wildcards. Lines that begin with "#" are comments.
#pragma once

struct finding;

struct suppression_error {
    const char *reason;  // null: there is none
    unsigned line;       // 0: of the whole file
};

// Add those of a file.
suppression_error load_suppressions(const char *path);

bool is_suppressed(const finding &found);
