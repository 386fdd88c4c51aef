// What happened, in words and in order.
#pragma once

#include <string>
#include <vector>

using steps = std::vector<std::string>;
