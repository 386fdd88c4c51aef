// The threads that read the files of the catalogue while the folders are still being walked.
#pragma once

#include "image_file.h"

struct work_crew;

// `jobs` threads; with 1 the caller's thread does the work in crew_finish. Null when there is no memory.
// Everything of the crew is the owner's.
work_crew *crew_open(memory_owner &owner, const image_reader &reader, uint64_t jobs);

// Entries were added to the catalogue and filled as far as the crew is not to do it: read those that are
// pending.
void crew_publish(work_crew *crew);

// No more files come: return when all are read, or the run is interrupted, and the threads have ended. Call
// once.
void crew_finish(work_crew *crew);
