// A value of errno that stands after a call only if nobody set it.
#pragma once

constexpr int SENTINEL_ERRNO = 7777;  // what no function under test sets errno to
