// What the inspector knows: records, calls, and the answers to the two questions that every interface has beside its
// methods.
#pragma once

#include <string>
#include <vector>

#include "sim/json/Type.h"

namespace sim {

struct Subject {
    std::string name;       // "BatteryState", "IRequest.getFdforUID", "IRequest.getInterfaceVersion.reply"
    std::string signature;  // a record's members in braces; a call's code and its arguments' types; a reply's type
    const Type& type;
    bool isReply = false;  // a status comes first
};

std::vector<Subject> allSubjects();

struct Answer {
    std::string text;
    std::string note;  // what is odd, or empty
};
// Both throw BadInput.
Answer decode(const Subject& subject, const std::string& hex);
Answer encode(const Subject& subject, const std::string& json);

}  // namespace sim
