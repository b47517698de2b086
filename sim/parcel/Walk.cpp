#include "sim/parcel/Walk.h"

#include <android/binder_auto_utils.h>
#include <fcntl.h>

#include <algorithm>
#include <limits>

#include "sim/parcel/Objects.h"

namespace sim {

using Kind = Type::Kind;

void Walk::walkWhole(const Type& type) {
    const std::shared_ptr<void> value = type.make();
    bool good = true;
    if (type.kind == Kind::kRecord) {
        good = walkRecord(type, value.get(), "");
    } else {
        for (const Member& argument : type.members) {
            placeObject(argument.type);
            good = walk(argument.type, argument.in(value.get()), argument.name);
            if (!good) break;
        }
    }
    if (good) noteEnd();
}

bool Walk::fail(int32_t at, const std::string& path, const std::string& type) {
    failure = "at byte " + std::to_string(at) + " in " + path + " (" + type + ")";
    return false;
}

bool Walk::walk(const Type& type, void* value, const std::string& path) {
    const int32_t at = position();
    if (type.kind == Kind::kRecord) {
        int32_t marker = 0;
        if (AParcel_readInt32(parcel, &marker) != STATUS_OK || marker == 0) return fail(at, path, type.name);
        return walkRecord(type, value, path);
    }
    if (type.kind == Kind::kList) {
        int32_t count = 0;
        // More elements than bytes: the platform refuses before it makes room.
        if (AParcel_readInt32(parcel, &count) != STATUS_OK || count < 0 || count > size - position()) {
            return fail(at, path, type.name);
        }
        const std::shared_ptr<void> element = type.element->make();
        for (int32_t i = 0; i < count; ++i) {
            if (!walk(*type.element, element.get(), path + '[' + std::to_string(i) + ']')) return false;
        }
        return true;
    }
    return type.read(parcel, value) == STATUS_OK || fail(at, path, type.name);
}

bool Walk::walkRecord(const Type& type, void* value, const std::string& path) {
    const std::string whole = path.empty() ? type.name : path;
    const int32_t start = position();
    int32_t length = 0;
    if (AParcel_readInt32(parcel, &length) != STATUS_OK || length < 4 ||
        start > std::numeric_limits<int32_t>::max() - length) {
        return fail(start, "the size of " + whole, "int");
    }
    for (const Member& member : type.members) {
        if (position() - start >= length) {
            notes.push_back(whole + " ends before " + member.name + ", which keeps its default");
            break;
        }
        if (!walk(member.type, member.in(value), joined(path, member.name))) return false;
    }
    if (position() != start + length) {
        notes.push_back("the size of " + whole + " is " + std::to_string(length) + ", its members take " +
                        std::to_string(position() - start));
    }
    AParcel_setDataPosition(parcel, start + length);
    return true;
}

void Walk::placeObject(const Type& type) {
    if (type.kind != Kind::kDescriptor && type.kind != Kind::kCallback) return;
    const bool isDescriptor = type.kind == Kind::kDescriptor;
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
        notes.push_back(kNoPath);
    } else {
        const bool isNull = std::all_of(words.begin() + 2, words.end(), [](int32_t word) { return word == 0; });
        remoteBinder = words[0] == kRemoteBinderType;
        if (isNull || (words[0] != kLocalBinderType && !remoteBinder)) return;
        const std::shared_ptr<void> callback = type.make();
        setLocalCallback(callback.get());
        type.write(parcel, callback.get());
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
