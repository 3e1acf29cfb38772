// The receiver's ways out of its process, which are no findings: they arrive as an exception.
#pragma once

#include <string>

struct ReceiverEnd {
    std::string why;  // "status N", or an assertion's expression
};
