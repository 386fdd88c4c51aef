// What the families have in common: telling who misuses which object.
#pragma once

#include "findings.h"
#include "registry.h"

// A finding about an object that is known: its tag and size, where it was made and where released, and where
// its tag was drawn.
finding found_about(finding_kind kind, const place *where, const object &known, const char *message);

// `address` is released once more, or was never one of the library's. `known.key` is 0 when nothing is known.
void report_not_live(const place *where, const void *address, uint64_t tag, const object &known);

// Tag 0 is used for something new.
void report_if_tag_zero(const place *where, uint64_t tag);

// What still lives under tags. `how` completes "12 bytes in 1 block ...".
void report_leaks(const char *how);
// What is still held.
void report_held();
