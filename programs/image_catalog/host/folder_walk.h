// From what the user named to single files.
#pragma once

#include "catalogue.h"
#include "options.h"
#include "work_crew.h"

// Hand the file `path`, or every file below the folder `path`, to the crew, but for what is excluded. Links
// to folders met on the way are not followed.
void walk_path(const CHAR *path, const options &given, work_crew *crew, catalogue *files);

// The same for every path that standard input names. False when it cannot be read.
bool walk_standard_input(const options &given, work_crew *crew, catalogue *files);
