// The functions that the checker puts in front of others: the only names that it exports.
#pragma once

#define CHECKED extern "C" __attribute__((visibility("default")))
