#include "sim/parcel/Walk.h"

#include <fcntl.h>

#include <algorithm>

#include "sim/parcel/Objects.h"

namespace sim {

void Walk::placeObject(bool isDescriptor) {
    const int32_t at = position();
    std::vector<int32_t> words(isDescriptor ? kDescriptorWords : kBinderWords);
    const bool whole = std::all_of(words.begin(), words.end(),
                                   [&](int32_t& word) { return AParcel_readInt32(parcel, &word) == STATUS_OK; });
    AParcel_setDataPosition(parcel, at);
    if (!whole) return;
    if (isDescriptor) {
        if (words[0] == 0 || words[1] != 0 || words[2] != kDescriptorType) return;
        const ndk::ScopedFileDescriptor null(open("/dev/null", O_RDONLY | O_CLOEXEC));
        AParcel_writeParcelFileDescriptor(parcel, null.get());
    } else {
        const bool isNull = std::all_of(words.begin() + 2, words.end(), [](int32_t word) { return word == 0; });
        remoteBinder = words[0] == kRemoteBinderType;
        if (isNull || (words[0] != kLocalBinderType && !remoteBinder)) return;
        orvix::writeValue(parcel, json::localObject<orvix::IRequest>());
    }
    AParcel_setDataPosition(parcel, at);
}

void Walk::noteEnd() {
    const int32_t left = size - position();
    if (left > 0)
        notes.push_back(std::to_string(left) + " bytes from byte " + std::to_string(position()) + " are not read");
    if (left < 0) notes.push_back("the sizes run " + std::to_string(-left) + " bytes past the data");
}

}  // namespace sim
