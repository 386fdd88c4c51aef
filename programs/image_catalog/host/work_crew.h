// The files to be read, and the threads that read them while the folders are still being walked.
#pragma once

#include "catalogue.h"
#include "image_file.h"

struct work_crew;

// `jobs` threads; with 1 the caller's thread does the work in crew_finish. Null when there is no memory.
// Everything of the crew is under `tag` and goes with it.
work_crew *crew_open(uint64_t tag, catalogue *files, const image_reader &reader, uint64_t jobs);

// One more file. `named` tells a file that the user named from one met in a folder.
void crew_add(work_crew *crew, const CHAR *path, bool named);

// No more files come: return when all are in the catalogue and the threads have ended. Call once.
void crew_finish(work_crew *crew);
