// The one native object of the process: the connection to the vendor service, the queue of what the service asks for,
// and the calls into Java.
//
// Threads: Java threads run the native methods. One dispatch thread runs every call into Java. Binding threads (one at
// start, one after each death) connect. Binder threads only queue events. Nothing stops these threads, not even the
// client's end: see ~AidlClient.
//
// Locks: serviceLock, queueMutex and the one inside eventSignal; never nested, and never held across a call into Java.
// serviceLock alone is held across binder calls: while binding and unbinding.
#pragma once

#include <android/binder_auto_utils.h>
#include <jni.h>

#include <atomic>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>

#include "aidl/IOrvixService.h"
#include "callback/CallbackEvent.h"
#include "client/EventSemaphore.h"
#include "client/ThreadSafety.h"

namespace orvix {

class OrvixCallback;

class AidlClient {
  public:
    AidlClient() { earlier = newest.exchange(this); }  // once it is complete: other threads may use it at once
    // The end, at a second load or while the process ends, stops and joins nobody: it empties the client. Its storage,
    // its locks and its wake-up stay for good, so a thread that comes late finds a client without a service and queues
    // in vain; a call-out that has begun is finished, the client's own threads rest before the next.
    virtual ~AidlClient();
    static void operator delete(void*) {}  // NOLINT(misc-new-delete-overloads): made by the global new

    // The client last loaded, ended or not. Any thread; gAidlClient may be written meanwhile, this is never cleared.
    static AidlClient& latest() { return *newest; }

    // At load (jni/JniOnLoad.cpp). Registers the natives on className and finds the class of the call-outs. The caller
    // owns methods; they are copied by the VM. False, with an error logged, when the VM refuses; a missing class of the
    // call-outs is no failure, and javaClass stays null.
    bool registerNativeMethods(JNIEnv* env, const char* className, const JNINativeMethod* methods, int count);
    // The Java VM; set once, before any thread runs.
    JavaVM* vm;

    // Binding (client/Binding.cpp).
    // A copy of the proxy, empty while unbound. Any thread. Users keep the copy, never the field.
    std::shared_ptr<IOrvixService> getOrvixService();
    void bindToService();  // body of a binding thread
    // At the service's death, on a binder thread. Goes to the latest client, whichever linked itself (the cookie).
    static void deathCallback(void* cookie);

    // The event queue (client/EventQueue.cpp).
    // Queues the event, the caller's copy, and wakes the dispatch thread. Any thread; never waits for Java.
    void pushEv(CallbackEvent ev);
    [[noreturn]] void jniMainThread();  // body of the dispatch thread
    void handleEvents();                // the dispatch thread: drains the queue
    // The dispatch thread: into Java, or what the event says; a type that nobody has does nothing.
    void handleEvent(const CallbackEvent& ev);

    // The native methods of JniHelper (jni/). Any Java thread. They return nothing and raise nothing: what cannot be
    // delivered is logged and lost.
    static void initialize(JNIEnv* env, jobject object);
    static void sendRadioStatus(JNIEnv* env, jobject object, jboolean flag1, jboolean flag2, jboolean flag3);
    static void sendNetworkStatsForAllUids(JNIEnv* env, jobject object, jint ratType, jobjectArray parcels);
    static void sendNetworkStatsForNetworkType(JNIEnv* env, jobject object, jint ratType, jobject parcel);
    static void sendScreenState(JNIEnv* env, jobject object, jboolean on);
    static void sendCensusInfo(JNIEnv* env, jobject object, jobject buildInfo, jobjectArray telephonyInfos);
    static void sendBootCompleteInfo(JNIEnv* env, jobject object, jboolean completed);
    static void sendNetworkInfo(JNIEnv* env, jobject object, jint ratType, jobject parcel);
    static void sendFGNetworkInfo(JNIEnv* env, jobject object, jint ratType, jlong value, jint techType);
    static void sendLPMStatus(JNIEnv* env, jobject object, jboolean status);
    static void sendThermalStatus(JNIEnv* env, jobject object, jint state);
    static void sendBatteryStatus(JNIEnv* env, jobject object, jint level, jboolean flag);
    static void sendHotspotStatus(JNIEnv* env, jobject object, jboolean status);
    static void queryStats(JNIEnv* env, jobject object);
    static void sendBlobToMirel(JNIEnv* env, jobject object, jint tag, jbyteArray blob);

  private:
    // The handlers of the events: the dispatch thread only.
    void handleServiceUp();
    void handleServiceDown();
    void getRadioStatus();
    void startNetworkStatsPolling(int32_t interval);
    void stopNetworkStatsPolling();
    void collectCensusInfo();
    void registerForScreenStateChanges(bool on);
    void startUidStatsPolling(int64_t interval);
    void startRatStatsPolling(int64_t interval);
    void stopUidStatsPolling();
    void stopRatStatsPolling();
    void startNetworkMonitorForRatType(RatType ratType);
    void stopNetworkMonitorForRatType(RatType ratType);
    void requestWwanNetwork(int32_t slotId);
    void releaseWwanNetwork(int32_t slotId);
    void registerForLPMStatusChange(bool on);
    void registerForThermalStatusChange(bool on);
    void registerForBatteryStatusChange(bool on);
    void registerForHotspotStatusChange(bool on);
    void startStatsMonitoring();
    void updateStats(const NetworkStats& stats);
    void stopStatsMonitoring();
    void getSocketFd(const SocketInfo& info);  // callback/SocketService.cpp
    void sendBlobToApkNative(int32_t tag, const std::vector<uint8_t>& blob);

    // Calls into Java (client/JavaCalls.cpp).
    // Attaches the calling thread when it is not; false, logged, when that fails. Detaching is the caller's.
    bool isThreadAttached(JNIEnv** env);
    // Looks the instance method of target up and returns a new object, made without a constructor, to call it on.
    // Neither is checked here: a missing method is a null methodId, and null comes back when there is no memory.
    static jobject getJavaCallbackClass(JNIEnv* env, jclass target, const char* name, const char* signature,
                                        jmethodID& methodId);
    // Calls "onIServiceBinderAvailable"; false, with an error logged, when the thread cannot be attached.
    bool tellAvailability(bool available);
    class CallOut;  // one call into Java, with all that belongs to it

    std::optional<CallbackEvent> takeEvent();
    static void startThread(void (AidlClient::*body)(), AidlClient& client);
    void dropService() ORVIX_REQUIRES(serviceLock);

    static inline std::atomic<AidlClient*> newest = nullptr;
    [[maybe_unused]] AidlClient* earlier;  // what is kept for good can be found by a leak checker

    // asking: a binding thread, with serviceLock held, waits for an answer of the service.
    enum class Life { open, asking, ended };
    std::atomic<Life> life = Life::open;
    std::atomic<jclass> javaClass = nullptr;  // global reference to SorvixAidlClient, the class of the call-outs

    // On the heap for good, see ~AidlClient.
    std::deque<CallbackEvent>& eventQueue ORVIX_GUARDED_BY(queueMutex) = *new std::deque<CallbackEvent>;
    std::mutex& queueMutex = *new std::mutex;
    EventSemaphore& eventSignal = *new EventSemaphore;
    SharedMutex& serviceLock = *new SharedMutex;
    std::shared_ptr<IOrvixService>& service ORVIX_GUARDED_BY(serviceLock) = *new std::shared_ptr<IOrvixService>;
    std::shared_ptr<OrvixCallback>& callback = *new std::shared_ptr<OrvixCallback>;
    ndk::ScopedAIBinder_DeathRecipient& deathRecipient ORVIX_GUARDED_BY(serviceLock) =
        *new ndk::ScopedAIBinder_DeathRecipient;
};

// Owns the client. Written only by JNI_OnLoad, which replaces and destroys an earlier one, and by the end of the
// process.
extern std::unique_ptr<AidlClient> gAidlClient;

}  // namespace orvix
