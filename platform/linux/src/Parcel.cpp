#include "Parcel.h"

#include <android/binder_parcel.h>
#include <android/binder_parcel_jni.h>
#include <fcntl.h>

#include <algorithm>
#include <cerrno>

#include "Object.h"

namespace standin {
namespace {

constexpr size_t kMaxSize = std::numeric_limits<int32_t>::max();

constexpr uint32_t kBinderType = 0x73622a85;      // "sb*\x85": a local binder
constexpr uint32_t kHandleType = 0x73682a85;      // "sh*\x85": a remote one
constexpr uint32_t kDescriptorType = 0x66642a85;  // "fd*\x85"
constexpr uint32_t kPriorityFlags = 0x13;
constexpr uint32_t kAcceptsDescriptors = 0x100;

constexpr uint32_t kStrictMode = 0x80000000;
constexpr uint32_t kNoWorkSource = 0xffffffff;
constexpr uint32_t kTokenWord = 0x53595354;  // the letters "SYST", lowest last

constexpr size_t padded(size_t length) { return (length + 3) & ~size_t{3}; }

FlatObject flatten(const Object& object) {
    if (object.descriptor.get() >= 0) {
        return {kDescriptorType, 0, static_cast<uint32_t>(object.descriptor.get()), 1};
    }
    AIBinder* binder = object.binder.get();
    if (binder == nullptr) return {kBinderType, kPriorityFlags, 0, 0};
    if (const RemoteBinder* remote = binder->asRemote()) return {kHandleType, kPriorityFlags, remote->id, 0};
    const auto address = reinterpret_cast<uintptr_t>(binder);
    return {kBinderType, kPriorityFlags | kAcceptsDescriptors, address, address};
}

// The platform trusts the first byte of a sequence for its length and masks the others, so any bytes give some text.
// False: the last sequence is cut short.
bool toUtf16(std::string_view text, std::u16string& units) {
    constexpr uint8_t kLeadBits[] = {0xff, 0x1f, 0x0f, 0x07};
    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<uint8_t>(text[i]);
        const size_t length = lead < 0xc0 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
        if (length > text.size() - i) return false;
        uint32_t value = lead & kLeadBits[length - 1];
        for (const size_t end = i++ + length; i < end; ++i) value = value << 6 | (static_cast<uint8_t>(text[i]) & 0x3f);
        if (value > 0xffff) {
            units += static_cast<char16_t>(((value - 0x10000) >> 10) + 0xd800);
            value = ((value - 0x10000) & 0x3ff) + 0xdc00;
        }
        units += static_cast<char16_t>(value);
    }
    return true;
}

// Surrogates without a partner are left out.
std::string toUtf8(const std::u16string& units) {
    std::string text;
    // The lead byte, then six bits in each of so many more.
    const auto put = [&](uint32_t lead, uint32_t value, int more) {
        text += static_cast<char>(lead | value >> 6 * more);
        while (more-- > 0) text += static_cast<char>(0x80 | (value >> 6 * more & 0x3f));
    };
    for (size_t i = 0; i < units.size(); ++i) {
        const uint32_t unit = units[i];
        if (unit < 0x80) {
            put(0, unit, 0);
        } else if (unit < 0x800) {
            put(0xc0, unit, 1);
        } else if ((unit & 0xf800) != 0xd800) {
            put(0xe0, unit, 2);
        } else if ((unit & 0xfc00) == 0xd800 && (units[i + 1] & 0xfc00) == 0xdc00) {  // at the end there is a 0
            put(0xf0, 0x10000 + ((unit & 0x3ff) << 10) + (units[++i] & 0x3ffu), 3);
        }
    }
    return text;
}

}  // namespace

int duplicateHigh(int fd) {
    constexpr int kFirst = 512;
    const int high = fcntl(fd, F_DUPFD_CLOEXEC, kFirst);
    // Above the process's limit: any number is better than none.
    return high < 0 && errno == EINVAL ? fcntl(fd, F_DUPFD_CLOEXEC, 3) : high;
}

void Parcel::clear() {
    bytes.clear();
    objects.clear();
    position = 0;
}

uint8_t* Parcel::grow(size_t length) {
    if (length > kMaxSize || position > kMaxSize - padded(length)) return nullptr;
    const size_t end = position + padded(length);
    // What is written over is gone, objects too.
    const size_t reach = sizeof(FlatObject) - 1;
    objects.erase(objects.lower_bound(position < reach ? 0 : position - reach), objects.lower_bound(end));
    if (bytes.size() < end) bytes.resize(end);
    uint8_t* room = bytes.data() + position;
    std::memset(room + length, 0, padded(length) - length);
    position = end;
    return room;
}

const uint8_t* Parcel::take(size_t length) {
    if (length > kMaxSize || padded(length) > left()) return nullptr;
    const uint8_t* data = bytes.data() + position;
    position += padded(length);
    return data;
}

binder_status_t Parcel::writeString(std::string_view string) {
    std::u16string units;
    if (!toUtf16(string, units)) return STATUS_BAD_VALUE;
    const size_t size = (units.size() + 1) * sizeof(char16_t);
    uint8_t* room = grow(sizeof(int32_t) + size);
    if (room == nullptr) return STATUS_NO_MEMORY;
    const auto count = static_cast<int32_t>(units.size());
    std::memcpy(room, &count, sizeof(count));
    std::memcpy(room + sizeof(count), units.c_str(), size);
    return STATUS_OK;
}

std::optional<std::string> Parcel::readString() {
    int32_t count = 0;
    // A count that is not there counts as 0, and then the terminator is missing too.
    (void)read(&count);
    const size_t size = (static_cast<size_t>(count) + 1) * sizeof(char16_t);
    const uint8_t* data = count < 0 ? nullptr : take(size);
    if (data == nullptr) return std::nullopt;
    std::u16string units(static_cast<size_t>(count) + 1, u'\0');
    std::memcpy(units.data(), data, size);
    if (units.back() != 0) return std::nullopt;
    units.pop_back();
    return toUtf8(units);
}

void Parcel::place(size_t offset, Object object) {
    const FlatObject flat = flatten(object);
    std::memcpy(bytes.data() + offset, &flat, sizeof(flat));
    // Null is only its bytes.
    if (object.binder.get() != nullptr || object.descriptor.get() >= 0) objects[offset] = std::move(object);
}

binder_status_t Parcel::writeBinder(AIBinder* binder) {
    const size_t start = position;
    if (grow(sizeof(FlatObject) + sizeof(int32_t)) == nullptr) return STATUS_NO_MEMORY;
    AIBinder_incStrong(binder);
    place(start, {ndk::SpAIBinder(binder), {}});
    const int32_t stability = binder == nullptr ? 0 : binder->stability.load();
    std::memcpy(bytes.data() + start + sizeof(FlatObject), &stability, sizeof(stability));
    return STATUS_OK;
}

// The object of this kind at the position. As on the device the position moves on whatever is found there.
const Object* Parcel::takeObject(uint32_t type, bool& isNull) {
    const size_t start = position;
    FlatObject flat;
    if (read(&flat) != STATUS_OK) return nullptr;
    isNull = flat.type == type && flat.handle == 0 && flat.cookie == 0;
    const auto found = objects.find(start);
    return found == objects.end() ? nullptr : &found->second;
}

binder_status_t Parcel::readBinder(AIBinder** binder) {
    bool isNull = false;
    const Object* object = takeObject(kBinderType, isNull);
    if (!isNull && (object == nullptr || object->binder.get() == nullptr)) return STATUS_BAD_TYPE;
    int32_t stability = 0;
    const binder_status_t status = read(&stability);
    if (status != STATUS_OK) return status;
    *binder = object == nullptr ? nullptr : object->binder.get();
    AIBinder_incStrong(*binder);
    return STATUS_OK;
}

binder_status_t Parcel::writeDescriptor(int fd) {
    ndk::ScopedFileDescriptor copy(duplicateHigh(fd));
    if (copy.get() < 0) return STATUS_UNKNOWN_ERROR;
    const size_t start = position;
    if (grow(sizeof(FlatObject)) == nullptr) return STATUS_NO_MEMORY;
    place(start, {nullptr, std::move(copy)});
    return STATUS_OK;
}

binder_status_t Parcel::readDescriptor(int* fd) {
    bool isNull = false;
    const Object* object = takeObject(kDescriptorType, isNull);
    if (object == nullptr || object->descriptor.get() < 0) return STATUS_BAD_TYPE;
    const int copy = fcntl(object->descriptor.get(), F_DUPFD_CLOEXEC, 0);
    if (copy < 0) return STATUS_UNKNOWN_ERROR;
    *fd = copy;
    return STATUS_OK;
}

binder_status_t Parcel::writeToken(const std::string& descriptor) {
    for (const uint32_t word : {kStrictMode, kNoWorkSource, kTokenWord}) {
        if (const binder_status_t status = write(word); status != STATUS_OK) return status;
    }
    return writeString(descriptor);
}

bool Parcel::checkToken(const std::string& descriptor) {
    uint32_t words[3] = {};  // policy and work source may be anything
    return read(&words) == STATUS_OK && words[2] == kTokenWord && readString() == descriptor;
}

}  // namespace standin

using standin::Parcel;

namespace {

Parcel& content(const AParcel* parcel) { return *parcel->content; }

// The count before the elements of an array: -1 for null, which only null data may have.
binder_status_t writeCount(AParcel* parcel, bool isNull, int32_t length) {
    if (length < -1 || (isNull ? length > 0 : length < 0)) return STATUS_BAD_VALUE;
    return content(parcel).write(length);
}

// The count of an array to be read. A refused or impossible one is answered before anything is allocated for it.
binder_status_t readCount(const AParcel* parcel, int32_t* length) {
    const binder_status_t status = content(parcel).read(length);
    if (status != STATUS_OK) return status;
    if (*length < -1) return STATUS_BAD_VALUE;
    if (*length > 0 && static_cast<size_t>(*length) > content(parcel).left()) return STATUS_NO_MEMORY;
    return STATUS_OK;
}

}  // namespace

AParcel* AParcel_create() { return new AParcel; }
void AParcel_delete(AParcel* parcel) { delete parcel; }
binder_status_t AParcel_reset(AParcel* parcel) {
    content(parcel).clear();
    return STATUS_OK;
}

binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position) {
    if (position < 0) return STATUS_BAD_VALUE;
    content(parcel).position = static_cast<size_t>(position);
    return STATUS_OK;
}
int32_t AParcel_getDataPosition(const AParcel* parcel) { return static_cast<int32_t>(content(parcel).position); }
int32_t AParcel_getDataSize(const AParcel* parcel) { return static_cast<int32_t>(content(parcel).size()); }

binder_status_t AParcel_marshal(const AParcel* parcel, uint8_t* buffer, size_t start, size_t len) {
    const Parcel& from = content(parcel);
    if (!from.objects.empty()) return STATUS_INVALID_OPERATION;
    // Not size(): behind a position past the end there is nothing yet.
    if (len > from.bytes.size() || start > from.bytes.size() - len) return STATUS_BAD_VALUE;
    if (from.bytes.data() == nullptr) return STATUS_UNEXPECTED_NULL;  // never written
    std::memcpy(buffer, from.bytes.data() + start, len);
    return STATUS_OK;
}

binder_status_t AParcel_unmarshal(AParcel* parcel, const uint8_t* buffer, size_t len) {
    content(parcel).clear();
    if (len == 0) return STATUS_OK;
    uint8_t* room = content(parcel).grow(len);
    if (room == nullptr) return STATUS_NO_MEMORY;
    std::memcpy(room, buffer, len);
    return STATUS_OK;
}

binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value) { return content(parcel).write(value); }
binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value) { return content(parcel).write(value); }
binder_status_t AParcel_writeBool(AParcel* parcel, bool value) { return content(parcel).write(int32_t{value}); }
binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value) { return content(parcel).read(value); }
binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value) { return content(parcel).read(value); }
binder_status_t AParcel_readBool(const AParcel* parcel, bool* value) {
    int32_t word = 0;
    const binder_status_t status = content(parcel).read(&word);
    *value = word != 0;
    return status;
}

binder_status_t AParcel_writeString(AParcel* parcel, const char* string, int32_t length) {
    if (string == nullptr && length == -1) return content(parcel).write(length);
    if (string == nullptr || length < 0) return STATUS_BAD_VALUE;
    return content(parcel).writeString({string, static_cast<size_t>(length)});
}
binder_status_t AParcel_readString(const AParcel* parcel, void* stringData, AParcel_stringAllocator allocator) {
    const std::optional<std::string> text = content(parcel).readString();
    if (!text) return allocator(stringData, -1, nullptr) ? STATUS_OK : STATUS_UNEXPECTED_NULL;
    const size_t size = text->size() + 1;
    if (size > standin::kMaxSize) return STATUS_BAD_VALUE;
    char* out = nullptr;
    if (!allocator(stringData, static_cast<int32_t>(size), &out) || out == nullptr) return STATUS_NO_MEMORY;
    std::memcpy(out, text->c_str(), size);
    return STATUS_OK;
}

binder_status_t AParcel_writeByteArray(AParcel* parcel, const int8_t* arrayData, int32_t length) {
    const binder_status_t status = writeCount(parcel, arrayData == nullptr, length);
    if (status != STATUS_OK || length <= 0) return status;
    uint8_t* room = content(parcel).grow(static_cast<size_t>(length));
    if (room == nullptr) return STATUS_NO_MEMORY;
    std::memcpy(room, arrayData, static_cast<size_t>(length));
    return STATUS_OK;
}

binder_status_t AParcel_readByteArray(const AParcel* parcel, void* arrayData, AParcel_byteArrayAllocator allocator) {
    int32_t length = 0;
    const binder_status_t status = readCount(parcel, &length);
    if (status != STATUS_OK) return status;
    int8_t* buffer = nullptr;
    if (length == -1) return allocator(arrayData, -1, nullptr) ? STATUS_OK : STATUS_UNEXPECTED_NULL;
    if (!allocator(arrayData, length, &buffer) || (buffer == nullptr && length > 0)) return STATUS_NO_MEMORY;
    if (length == 0) return STATUS_OK;
    const uint8_t* data = content(parcel).take(static_cast<size_t>(length));
    if (data == nullptr) return STATUS_NOT_ENOUGH_DATA;
    std::memcpy(buffer, data, static_cast<size_t>(length));
    return STATUS_OK;
}

binder_status_t AParcel_writeParcelableArray(AParcel* parcel, const void* arrayData, int32_t length,
                                             AParcel_writeParcelableElement elementWriter) {
    // The data may be a null pointer for any length: only the writer knows what it points to.
    binder_status_t status = writeCount(parcel, length < 0, length);
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        status = elementWriter(parcel, arrayData, static_cast<size_t>(i));
    }
    return status;
}

binder_status_t AParcel_readParcelableArray(const AParcel* parcel, void* arrayData,
                                            AParcel_parcelableArrayAllocator allocator,
                                            AParcel_readParcelableElement elementReader) {
    int32_t length = 0;
    binder_status_t status = readCount(parcel, &length);
    if (status != STATUS_OK) return status;
    if (length == -1) return allocator(arrayData, -1) ? STATUS_OK : STATUS_UNEXPECTED_NULL;
    if (!allocator(arrayData, length)) return STATUS_NO_MEMORY;
    for (int32_t i = 0; i < length && status == STATUS_OK; ++i) {
        status = elementReader(parcel, arrayData, static_cast<size_t>(i));
    }
    return status;
}

binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder) {
    return content(parcel).writeBinder(binder);
}
binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder) {
    return content(parcel).readBinder(binder);
}

// A parcelable of its own on the device: a mark, the absence of a second (communication) descriptor, the descriptor.
binder_status_t AParcel_writeParcelFileDescriptor(AParcel* parcel, int fd) {
    if (fd < -1) return STATUS_UNKNOWN_ERROR;
    binder_status_t status = content(parcel).write(int32_t{fd != -1});
    if (status != STATUS_OK || fd == -1) return status;
    if (fcntl(fd, F_GETFD) < 0) return STATUS_UNKNOWN_ERROR;
    status = content(parcel).write(int32_t{0});
    return status == STATUS_OK ? content(parcel).writeDescriptor(fd) : status;
}

binder_status_t AParcel_readParcelFileDescriptor(const AParcel* parcel, int* fd) {
    int32_t mark = 0;
    binder_status_t status = content(parcel).read(&mark);
    if (status == STATUS_OK && mark == 0) *fd = -1;
    if (status != STATUS_OK || mark == 0) return status;
    status = content(parcel).read(&mark);
    return status == STATUS_OK ? content(parcel).readDescriptor(fd) : status;
}

AParcel* AParcel_fromJavaParcel(JNIEnv* env, jobject parcel) {
    if (parcel == nullptr) return nullptr;
    jclass javaClass = env->GetObjectClass(parcel);
    jfieldID field = env->GetFieldID(javaClass, "mNativePtr", "J");
    env->DeleteLocalRef(javaClass);
    if (field == nullptr) return nullptr;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): Java keeps the pointer in a long.
    const auto* behind = reinterpret_cast<const AParcel*>(env->GetLongField(parcel, field));
    if (behind != nullptr) return new AParcel{behind->content, nullptr};
    env->ThrowNew(env->FindClass("java/lang/IllegalStateException"), "The parcel has been recycled");
    return nullptr;
}
