// Moments as ISO 8601 writes them.
#pragma once

#include "foundation/date.h"

constexpr UINT MOMENT_SIZE = 24;  // "2026-11-21T03:44:16Z"

// Epoch seconds as a date; false outside the years 1601 to 9999, which the library's records can hold.
bool moment_from_epoch(int64_t epoch_seconds, ZT_DATETIME &moment);

// Universal time, or the date alone, as text of MOMENT_SIZE at most. Returns its length.
INT moment_text(const ZT_DATETIME &moment, CHAR *text);
INT moment_date_text(const ZT_DATETIME &moment, CHAR *text);
