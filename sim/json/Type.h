// The types of the interface as data: a tool goes through a value of any of them without code for each.
#pragma once

#include <android/binder_parcel.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sim {

using Bytes = std::vector<uint8_t>;

struct Type;

// A member of a record, or an argument of a call.
struct Member {
    std::string name;  // of an argument: "argument 1"
    const Type& type;
    void* (*placeIn)(void* whole);

    void* in(void* whole) const { return placeIn(whole); }
    const void* in(const void* whole) const { return placeIn(const_cast<void*>(whole)); }
};

// Values are passed as pointers to what stands beside their kind. What is read is read into a value that was made.
struct Type {
    enum class Kind {
        kBool,          // bool
        kInt,           // int32_t, or an enumeration of such
        kLong,          // int64_t
        kText,          // std::string
        kNullableText,  // std::optional<std::string>
        kBytes,         // Bytes
        kCallback,      // std::shared_ptr<IRequest>
        kDescriptor,    // ndk::ScopedFileDescriptor
        kRecord,
        kList,       // std::vector of records
        kArguments,  // std::tuple of a call's arguments
    };
    Kind kind;
    std::string name;  // as in .aidl; of arguments: all of them, in brackets
    std::shared_ptr<void> (*make)();
    // With the library's own codecs; of a record without the marker that it has in an argument.
    binder_status_t (*read)(const AParcel* parcel, void* value);
    binder_status_t (*write)(AParcel* parcel, const void* value);
    std::vector<Member> members = {};  // of a record and of arguments, in wire order
    // Of a list.
    const Type* element = nullptr;
    size_t (*size)(const void* list) = nullptr;
    void (*resize)(void* list, size_t size) = nullptr;
    const void* (*at)(const void* list, size_t index) = nullptr;
};

// Lives as long as the process. Types.h has its definition, and with it all of the interface.
template <typename T>
const Type& typeOf();

inline std::string joined(const std::string& path, const std::string& member) {
    return path.empty() ? member : path + '.' + member;
}

// As writeValue: a record gets its marker.
binder_status_t writeArgument(AParcel* parcel, const Type& type, const void* value);

// "local binder", "remote binder"; null without one.
const char* nameOfCallback(const void* callback);
// A VINTF-marked binder of this process that knows no method.
void setLocalCallback(void* callback);

// A method of an interface.
struct Method {
    std::string interface;  // "IRequest"
    std::string name;
    uint32_t code;
    const Type& arguments;
};

// One of the two that every interface answers beside its methods.
struct Question {
    std::string interface, name;
    uint32_t code;
    const Type& arguments;  // none
    const Type& reply;      // behind a status
};

// In the order of the interface's files.
const std::vector<const Type*>& allRecords();
const std::vector<Method>& allMethods();
const std::vector<Question>& allQuestions();

}  // namespace sim
