// Names for people: of statuses, and those nearest to what somebody typed.
#pragma once

#include <android/binder_status.h>

#include <string>
#include <vector>

namespace sim {

// "NOT_ENOUGH_DATA", as in the constants without STATUS_. Not of STATUS_OK.
std::string nameOfStatus(binder_status_t status);

// The names with the fewest letters to change, at most three, as "a, b or c". What follows a name's last dot counts as
// a name of its own, a missing end as one letter, capitals not at all.
std::string nearest(const std::string& typed, const std::vector<std::string>& names);

}  // namespace sim
