// Holders that release what they hold: binders, parcels, statuses, descriptors, death recipients.
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <android/binder_status.h>
#include <assert.h>
#include <errno.h>
#include <string.h>
#include <syslog.h>
#include <unistd.h>

#include <compare>
#include <cstddef>
#include <string>

// The C library's own; its header hides it where NDEBUG is set, and the checks here hold in every build.
// NOLINTNEXTLINE(readability-redundant-declaration)
extern "C" void __assert_fail(const char* assertion, const char* file, unsigned int line, const char* function) noexcept
    __attribute__((noreturn));

namespace ndk {

// A strong reference. One holder is for one thread at a time; an assignment that meets another ends the process.
class SpAIBinder {
  public:
    SpAIBinder() = default;
    explicit SpAIBinder(AIBinder* binder) : mBinder(binder) {}  // takes the caller's reference
    SpAIBinder(std::nullptr_t) {}
    SpAIBinder(const SpAIBinder& other) { *this = other; }
    ~SpAIBinder() { set(nullptr); }

    SpAIBinder& operator=(const SpAIBinder& other) {
        if (this == &other) return *this;
        AIBinder_incStrong(other.mBinder);
        set(other.mBinder);
        return *this;
    }

    // Takes the caller's reference.
    void set(AIBinder* binder) {
        AIBinder* const old = *const_cast<AIBinder* const volatile*>(&mBinder);
        if (old != nullptr) AIBinder_decStrong(old);
        // Dropping the last reference runs foreign code, which may have come back to this very holder.
        if (old != *const_cast<AIBinder* const volatile*>(&mBinder)) {
            __assert_fail("Race detected.", __FILE__, __LINE__, __func__);
        }
        mBinder = binder;
    }

    AIBinder* get() const { return mBinder; }
    // For functions that give a binder through a pointer. What is held is not released: use it on an empty holder.
    AIBinder** getR() { return &mBinder; }

    friend bool operator==(const SpAIBinder& a, const SpAIBinder& b) { return a.get() == b.get(); }
    friend auto operator<=>(const SpAIBinder& a, const SpAIBinder& b) { return a.get() <=> b.get(); }

  private:
    AIBinder* mBinder = nullptr;
};

namespace impl {

template <typename T, void (*Destroy)(T), T Default>
class ScopedAResource {
  public:
    explicit ScopedAResource(T value = Default) : mValue(value) {}
    ~ScopedAResource() { Destroy(mValue); }
    ScopedAResource(ScopedAResource&& other) noexcept : mValue(other.release()) {}
    ScopedAResource& operator=(ScopedAResource&& other) noexcept {
        if (this != &other) set(other.release());
        return *this;
    }
    ScopedAResource(const ScopedAResource&) = delete;
    ScopedAResource& operator=(const ScopedAResource&) = delete;

    void set(T value) {
        Destroy(mValue);
        mValue = value;
    }
    T get() const { return mValue; }
    T get() { return mValue; }
    // For functions that give a value through a pointer. What is held is not released: use it on an empty holder.
    T* getR() { return &mValue; }
    [[nodiscard]] T release() {
        T value = mValue;
        mValue = Default;
        return value;
    }

  private:
    T mValue;
};

inline void closeDescriptor(int fd) {
    if (fd != -1 && close(fd) != 0) syslog(LOG_ERR, "Could not close FD %d: %s", fd, strerror(errno));
}

}  // namespace impl

class ScopedAParcel : public impl::ScopedAResource<AParcel*, AParcel_delete, nullptr> {
  public:
    explicit ScopedAParcel(AParcel* parcel = nullptr) : ScopedAResource(parcel) {}
    ScopedAParcel(ScopedAParcel&&) = default;
    ScopedAParcel& operator=(ScopedAParcel&&) = default;

    friend bool operator==(const ScopedAParcel& a, const ScopedAParcel& b) { return a.get() == b.get(); }
    friend auto operator<=>(const ScopedAParcel& a, const ScopedAParcel& b) { return a.get() <=> b.get(); }
};

// An empty holder is not ok: nothing has been answered yet.
class ScopedAStatus : public impl::ScopedAResource<AStatus*, AStatus_delete, nullptr> {
  public:
    explicit ScopedAStatus(AStatus* status = nullptr) : ScopedAResource(status) {}
    ScopedAStatus(ScopedAStatus&&) = default;
    ScopedAStatus& operator=(ScopedAStatus&&) = default;

    bool isOk() const { return get() != nullptr && AStatus_isOk(get()); }
    binder_exception_t getExceptionCode() const {
        return get() == nullptr ? binder_exception_t{EX_TRANSACTION_FAILED} : AStatus_getExceptionCode(get());
    }
    int32_t getServiceSpecificError() const { return get() == nullptr ? 0 : AStatus_getServiceSpecificError(get()); }
    binder_status_t getStatus() const {
        return get() == nullptr ? binder_status_t{STATUS_UNEXPECTED_NULL} : AStatus_getStatus(get());
    }
    const char* getMessage() const { return get() == nullptr ? "(no status)" : AStatus_getMessage(get()); }
    std::string getDescription() const {
        if (get() == nullptr) return "(no status)";
        const char* text = AStatus_getDescription(get());
        std::string description = text;
        AStatus_deleteDescription(text);
        return description;
    }

    static ScopedAStatus ok() { return ScopedAStatus(AStatus_newOk()); }
    static ScopedAStatus fromStatus(binder_status_t status) { return ScopedAStatus(AStatus_fromStatus(status)); }
    static ScopedAStatus fromExceptionCode(binder_exception_t exception) {
        return ScopedAStatus(AStatus_fromExceptionCode(exception));
    }
    static ScopedAStatus fromExceptionCodeWithMessage(binder_exception_t exception, const char* message) {
        return ScopedAStatus(AStatus_fromExceptionCodeWithMessage(exception, message));
    }
    static ScopedAStatus fromServiceSpecificError(int32_t error) {
        return ScopedAStatus(AStatus_fromServiceSpecificError(error));
    }
    static ScopedAStatus fromServiceSpecificErrorWithMessage(int32_t error, const char* message) {
        return ScopedAStatus(AStatus_fromServiceSpecificErrorWithMessage(error, message));
    }
};

class ScopedAIBinder_DeathRecipient
    : public impl::ScopedAResource<AIBinder_DeathRecipient*, AIBinder_DeathRecipient_delete, nullptr> {
  public:
    explicit ScopedAIBinder_DeathRecipient(AIBinder_DeathRecipient* recipient = nullptr) : ScopedAResource(recipient) {}
    ScopedAIBinder_DeathRecipient(ScopedAIBinder_DeathRecipient&&) = default;
    ScopedAIBinder_DeathRecipient& operator=(ScopedAIBinder_DeathRecipient&&) = default;
};

class ScopedAIBinder_Weak : public impl::ScopedAResource<AIBinder_Weak*, AIBinder_Weak_delete, nullptr> {
  public:
    explicit ScopedAIBinder_Weak(AIBinder_Weak* weak = nullptr) : ScopedAResource(weak) {}
    ScopedAIBinder_Weak(ScopedAIBinder_Weak&&) = default;
    ScopedAIBinder_Weak& operator=(ScopedAIBinder_Weak&&) = default;

    SpAIBinder promote() const { return SpAIBinder(AIBinder_Weak_promote(get())); }
};

// Closes what it holds; a descriptor that somebody else has closed before is told to the system log.
class ScopedFileDescriptor : public impl::ScopedAResource<int, impl::closeDescriptor, -1> {
  public:
    ScopedFileDescriptor() : ScopedFileDescriptor(-1) {}
    explicit ScopedFileDescriptor(int fd) : ScopedAResource(fd) {}
    ScopedFileDescriptor(ScopedFileDescriptor&&) = default;
    ScopedFileDescriptor& operator=(ScopedFileDescriptor&&) = default;

    friend bool operator==(const ScopedFileDescriptor& a, const ScopedFileDescriptor& b) { return a.get() == b.get(); }
    friend auto operator<=>(const ScopedFileDescriptor& a, const ScopedFileDescriptor& b) {
        return a.get() <=> b.get();
    }

    ScopedFileDescriptor dup() const { return ScopedFileDescriptor(::dup(get())); }
};

}  // namespace ndk
