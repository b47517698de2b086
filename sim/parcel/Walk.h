// A second look at bytes that the library reads as a whole: goes through them member by member with the library's own
// readers, to say where one fails and what the bytes have that readers pass over without an error.
#pragma once

#include <string>
#include <vector>

#include "sim/json/Type.h"

namespace sim {

class Walk {
  public:
    // The parcel as the platform would deliver it.
    explicit Walk(AParcel* walked) : parcel(walked), size(AParcel_getDataSize(walked)) {}

    std::string failure;             // "at byte 8 in flag1 (boolean)", if a reader failed
    std::vector<std::string> notes;  // what is odd and no error
    bool remoteBinder = false;       // a binder among the arguments was another process's

    // A record or the arguments of a call, from the parcel's position to its end. Bytes cannot carry objects: where an
    // argument's bytes say that there is one, a real one of its kind is put into the parcel, /dev/null for a
    // descriptor.
    void walkWhole(const Type& type);

  private:
    AParcel* const parcel;
    const int32_t size;

    int32_t position() const { return AParcel_getDataPosition(parcel); }
    // False after a failure, as are those that follow.
    bool fail(int32_t at, const std::string& path, const std::string& type);
    bool walk(const Type& type, void* value, const std::string& path);
    bool walkRecord(const Type& type, void* value, const std::string& path);
    void placeObject(const Type& type);
    void noteEnd();
};

}  // namespace sim
