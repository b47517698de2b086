// Interfaces as C++ objects: shared by count, bound to a binder on one side (BnCInterface) or the other (BpCInterface).
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>
#include <android/binder_shell.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

namespace ndk {

// An object that can always give a shared pointer to itself. Make it with make(); deleting it is the pointers'
// business.
class SharedRefBase {
  public:
    SharedRefBase() = default;
    virtual ~SharedRefBase() {
        bool owned = true;
        std::call_once(mOnce, [&] { owned = false; });
        if (!owned) __assert_fail("SharedRefBase: no ref created during lifetime", __FILE__, __LINE__, __func__);
        if (mThis.lock() != nullptr) {
            __assert_fail("SharedRefBase: destroyed while still shared", __FILE__, __LINE__, __func__);
        }
    }
    SharedRefBase(const SharedRefBase&) = delete;
    SharedRefBase& operator=(const SharedRefBase&) = delete;

    std::shared_ptr<SharedRefBase> ref() {
        std::shared_ptr<SharedRefBase> self;
        std::call_once(mOnce, [&] { mThis = self = std::shared_ptr<SharedRefBase>(this); });
        return self != nullptr ? self : mThis.lock();
    }
    template <typename Child>
    std::shared_ptr<Child> ref() {
        return std::static_pointer_cast<Child>(ref());
    }

    template <typename T, typename... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        return (new T(std::forward<Args>(args)...))->template ref<T>();
    }

    // Its operator new is private. NOLINTNEXTLINE(misc-new-delete-overloads)
    static void operator delete(void* object) { std::free(object); }

  private:
    // For make() alone: an object of two owners would be deleted twice.
    static void* operator new(size_t size) { return std::malloc(size); }

    std::once_flag mOnce;
    std::weak_ptr<SharedRefBase> mThis;
};

class ICInterface : public SharedRefBase {
  public:
    virtual SpAIBinder asBinder() = 0;
    virtual bool isRemote() = 0;
    virtual binder_status_t dump(int /*fd*/, const char** /*args*/, uint32_t /*numArgs*/) { return STATUS_OK; }
    virtual binder_status_t handleShellCommand(int /*in*/, int /*out*/, int /*err*/, const char** /*args*/,
                                               uint32_t /*numArgs*/) {
        return STATUS_OK;
    }

    // The object behind a local binder of a class made by defineClass; empty for null and remote binders.
    static inline std::shared_ptr<ICInterface> asInterface(AIBinder* binder);
    // Null if AIBinder_Class_define refuses.
    static inline AIBinder_Class* defineClass(const char* descriptor, AIBinder_Class_onTransact onTransact);

  private:
    // The user data of a local binder: its reference to the object.
    struct ICInterfaceData {
        std::shared_ptr<ICInterface> interface;

        static ICInterfaceData* of(AIBinder* binder) {
            return binder == nullptr ? nullptr : static_cast<ICInterfaceData*>(AIBinder_getUserData(binder));
        }
        static void* onCreate(void* args) {
            return new ICInterfaceData{static_cast<ICInterface*>(args)->ref<ICInterface>()};
        }
        static void onDestroy(void* userData) { delete static_cast<ICInterfaceData*>(userData); }
        static binder_status_t onDump(AIBinder* binder, int fd, const char** args, uint32_t numArgs) {
            const std::shared_ptr<ICInterface> object = asInterface(binder);
            return object == nullptr ? STATUS_DEAD_OBJECT : object->dump(fd, args, numArgs);
        }
        static binder_status_t handleShellCommand(AIBinder* binder, int in, int out, int err, const char** args,
                                                  uint32_t numArgs) {
            const std::shared_ptr<ICInterface> object = asInterface(binder);
            return object == nullptr ? STATUS_DEAD_OBJECT : object->handleShellCommand(in, out, err, args, numArgs);
        }
    };
};

inline std::shared_ptr<ICInterface> ICInterface::asInterface(AIBinder* binder) {
    ICInterfaceData* data = ICInterfaceData::of(binder);
    return data == nullptr ? nullptr : data->interface;
}

inline AIBinder_Class* ICInterface::defineClass(const char* descriptor, AIBinder_Class_onTransact onTransact) {
    AIBinder_Class* clazz =
        AIBinder_Class_define(descriptor, ICInterfaceData::onCreate, ICInterfaceData::onDestroy, onTransact);
    if (clazz == nullptr) return nullptr;
    AIBinder_Class_setOnDump(clazz, ICInterfaceData::onDump);
    if (AIBinder_Class_setHandleShellCommand != nullptr) {
        AIBinder_Class_setHandleShellCommand(clazz, ICInterfaceData::handleShellCommand);
    }
    return clazz;
}

// The implementing side. The binder is made when it is first asked for and held weakly: while anybody holds it, asking
// gives the same one; afterwards a new one. The binder holds the object, not the other way round.
template <typename Interface>
class BnCInterface : public Interface {
  public:
    SpAIBinder asBinder() final {
        const std::lock_guard lock(mMutex);
        SpAIBinder binder;
        if (mWeakBinder.get() != nullptr) binder = mWeakBinder.promote();
        if (binder.get() == nullptr) {
            binder = createBinder();
            mWeakBinder.set(AIBinder_Weak_new(binder.get()));
        }
        return binder;
    }
    bool isRemote() override { return false; }

    // The name under which an instance is registered: the descriptor and what the caller adds, "default" for example.
    static std::string makeServiceName(std::string_view instance) {
        return Interface::descriptor + ("/" + std::string(instance));
    }

  protected:
    // AIBinder_new with the class of the interface and this object.
    virtual SpAIBinder createBinder() = 0;

  private:
    std::mutex mMutex;
    ScopedAIBinder_Weak mWeakBinder;
};

// The calling side: holds the binder.
template <typename Interface>
class BpCInterface : public Interface {
  public:
    explicit BpCInterface(const SpAIBinder& binder) : mBinder(binder) {}

    SpAIBinder asBinder() final { return mBinder; }
    bool isRemote() override { return AIBinder_isRemote(mBinder.get()); }
    binder_status_t dump(int fd, const char** args, uint32_t numArgs) override {
        return AIBinder_dump(mBinder.get(), fd, args, numArgs);
    }

  private:
    SpAIBinder mBinder;
};

}  // namespace ndk
