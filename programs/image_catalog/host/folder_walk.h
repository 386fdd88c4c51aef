// From what the user named to single files.
#pragma once

#include "catalogue.h"
#include "work_crew.h"

// Hand the file `path`, or every file below the folder `path`, to the crew. Links to folders met on the way
// are not followed.
void walk_path(const CHAR *path, work_crew *crew, catalogue *files);
