// The distribution's own yajl tree (yajl_tree_parse), kept in a file of its own because its
// header's types clash with the agent's tree types.
#pragma once

#include <string>

struct ReferenceNumber {
    bool parsed = false;  // the text parsed as one JSON number
    long long integer = 0;
    double value = 0;
    bool integerValid = false;
    bool doubleValid = false;
};

// What yajl's own tree makes of one JSON number text.
ReferenceNumber yajlReferenceNumber(const std::string& text);
