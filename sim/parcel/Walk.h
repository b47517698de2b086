// A second look at bytes that the library reads as a whole: goes through them member by member with the library's own
// readers, to say where one fails and what the bytes have that readers pass over without an error.
#pragma once

#include <string>
#include <vector>

#include "sim/json/Json.h"

namespace sim {

class Walk {
  public:
    // The parcel as the platform would deliver it. Position 0 is the first byte.
    explicit Walk(AParcel* walked) : parcel(walked), size(AParcel_getDataSize(walked)) {
        AParcel_setDataPosition(parcel, 0);
    }

    std::string failure;             // "at byte 8 in flag1 (boolean)", if a reader failed
    std::vector<std::string> notes;  // what is odd and no error
    bool remoteBinder = false;       // a binder among the arguments was another process's

    template <orvix::Record R>
    void walkRecord() {
        R value;
        if (record(value, "")) noteEnd();
    }

    // Bytes cannot carry objects: where the bytes say that there is one, a real one of its kind is put into the parcel,
    // /dev/null for a descriptor.
    template <typename... Args>
    void walkArguments(std::tuple<Args...>*) {
        int number = 0;
        [[maybe_unused]] const auto argument = [&]<typename T>(T value) {
            if constexpr (Descriptor<T> || Object<T>) placeObject(Descriptor<T>);
            return walk(value, "argument " + std::to_string(++number));
        };
        if ((argument(Args()) && ...)) noteEnd();
    }

  private:
    AParcel* const parcel;
    const int32_t size;

    int32_t position() const { return AParcel_getDataPosition(parcel); }

    template <typename T>
    bool fail(int32_t at, const std::string& path) {
        failure = "at byte " + std::to_string(at) + " in " + path + " (" + typeName<T>() + ")";
        return false;
    }

    template <typename T>
    bool walk(T& value, const std::string& path) {
        const int32_t at = position();
        if constexpr (orvix::Record<T>) {
            int32_t marker = 0;
            if (orvix::readValue(parcel, marker) != STATUS_OK || marker == 0) return fail<T>(at, path);
            return record(value, path);
        } else if constexpr (RecordList<T>) {
            int32_t count = 0;
            // More elements than bytes: the platform refuses before it makes room.
            if (orvix::readValue(parcel, count) != STATUS_OK || count < 0 || count > size - position()) {
                return fail<T>(at, path);
            }
            typename T::value_type element;
            for (int32_t i = 0; i < count; ++i) {
                if (!walk(element, path + '[' + std::to_string(i) + ']')) return false;
            }
            return true;
        } else {
            return orvix::readValue(parcel, value) == STATUS_OK || fail<T>(at, path);
        }
    }

    template <typename R>
    bool record(R& value, const std::string& path) {
        const std::string whole = path.empty() ? typeName<R>() : path;
        const int32_t start = position();
        int32_t length = 0;
        if (orvix::readValue(parcel, length) != STATUS_OK || length < 4 ||
            start > std::numeric_limits<int32_t>::max() - length) {
            return fail<int32_t>(start, "the size of " + whole);
        }
        bool good = true, ended = false;
        const auto member = [&](const auto& field) {
            if (!good || ended) return;
            ended = position() - start >= length;
            if (ended) {
                notes.push_back(whole + " ends before " + field.name + ", which keeps its default");
            } else {
                good = walk(value.*field.member, json::join(path, field.name));
            }
        };
        forEachMember<R>(member);
        if (!good) return false;
        if (position() != start + length) {
            notes.push_back("the size of " + whole + " is " + std::to_string(length) + ", its members take " +
                            std::to_string(position() - start));
        }
        AParcel_setDataPosition(parcel, start + length);
        return true;
    }

    void placeObject(bool isDescriptor);
    void noteEnd();
};

}  // namespace sim
