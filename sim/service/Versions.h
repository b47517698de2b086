// The records of a peer with another version of the interface. Version 6 lacks each record's last member; version 8 has
// one more at its end, an int.
#pragma once

#include "sim/json/Json.h"

namespace sim {

inline constexpr int kOlder = 6, kOwn = 7, kNewer = 8;

// As writeArgument, with such records.
binder_status_t writeArgument(int version, AParcel* parcel, const Type& type, const void* value);

// Makes of what was read what such a peer sees of it: the member that only it has is "added", and 0.
void seeAs(int version, const Type& type, Json& value);

}  // namespace sim
