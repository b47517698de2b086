#include "sim/service/Versions.h"

namespace sim {

binder_status_t writeArgument(int version, AParcel* parcel, const Type& type, const void* value) {
    // No request carries a list.
    if (version == kOwn || type.kind != Type::Kind::kRecord) return writeArgument(parcel, type, value);
    AParcel_writeInt32(parcel, 1);
    const int32_t start = AParcel_getDataPosition(parcel);
    AParcel_writeInt32(parcel, 0);
    const size_t count = type.members.size() - (version == kOlder ? 1 : 0);
    for (size_t i = 0; i < count; ++i) {
        const Member& member = type.members[i];
        const binder_status_t status = writeArgument(version, parcel, member.type, member.in(value));
        if (status != STATUS_OK) return status;
    }
    if (version == kNewer) AParcel_writeInt32(parcel, kNewer);
    const int32_t end = AParcel_getDataPosition(parcel);
    AParcel_setDataPosition(parcel, start);
    AParcel_writeInt32(parcel, end - start);
    return AParcel_setDataPosition(parcel, end);
}

void seeAs(int version, const Type& type, Json& value) {
    if (version == kOwn) return;
    if (type.kind == Type::Kind::kList) {
        for (Json& element : value) seeAs(version, *type.element, element);
    }
    for (size_t i = 0; i < type.members.size(); ++i) {
        const Member& member = type.members[i];
        seeAs(version, member.type, type.kind == Type::Kind::kRecord ? value[member.name] : value[i]);
    }
    if (type.kind != Type::Kind::kRecord) return;
    if (version == kOlder) value.erase(type.members.back().name);
    if (version == kNewer) value["added"] = 0;
}

}  // namespace sim
