// The one native object of the process: the connection to the vendor service, the queue of what the service asks for,
// and the calls into Java.
//
// Threads: Java threads run the native methods. One dispatch thread runs every call into Java. Binding threads (one at
// start, one after each death) connect. Binder threads only queue events. Nothing stops: the client lives until the
// process ends.
//
// Locks: serviceLock, queueMutex and the one inside eventSignal; never nested, but in the destructor, and never held
// across a call into Java. serviceLock alone is held across binder calls: while binding and unbinding.
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
#include "aidl/ThreadSafety.h"
#include "callback/OrvixCallback.h"
#include "client/CallbackEvent.h"
#include "client/EventSemaphore.h"

namespace orvix {

class AidlClient {
  public:
    AidlClient() = default;
    AidlClient(const AidlClient&) = delete;
    AidlClient& operator=(const AidlClient&) = delete;
    // Joins no thread: one that comes back to this client waits for good. Events still queued are lost; javaClass is
    // only forgotten.
    virtual ~AidlClient();
    // Keeps the storage once a dispatch thread has run: see ~AidlClient.
    static void operator delete(void* storage);  // NOLINT(misc-new-delete-overloads): made by the global new

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
    // At the service's death, on a binder thread. Goes to gAidlClient, whichever client linked itself (the cookie).
    static void deathCallback(void* cookie);

    // The event queue (client/EventQueue.cpp).
    // Queues a copy of ev and wakes the dispatch thread. Any thread; never waits for Java.
    void pushEv(const CallbackEvent& ev);
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
    // Looks the instance method up and returns a new object, made without a constructor, to call it on. Neither is
    // checked here: a missing method is a null methodId, and null comes back when there is no memory.
    jobject getJavaCallbackClass(JNIEnv* env, const char* name, const char* signature, jmethodID& methodId);
    // One call-out: attach, log "<name> start", look javaName up, call, detach.
    template <typename... Args>
    void callJavaAs(const char* name, const char* javaName, const Args&... args);
    template <typename... Args>
    void callJava(const char* name, const Args&... args);
    // Calls "onIServiceBinderAvailable"; false, with an error logged, when the thread cannot be attached.
    bool tellAvailability(bool available);
    // The part of a call-out on an attached thread; detaches it. afterCall runs right after the call, if there was one.
    template <typename After, typename... Args>
    void callAttached(JNIEnv* env, const char* javaName, const After& afterCall, const Args&... args);

    std::optional<CallbackEvent> takeEvent();
    static void startThread(void (AidlClient::*body)(), AidlClient* client);

    std::atomic<jclass> javaClass = nullptr;  // global reference to SorvixAidlClient, the class of the call-outs
    std::deque<CallbackEvent> eventQueue ORVIX_GUARDED_BY(queueMutex);
    std::mutex queueMutex;
    EventSemaphore eventSignal;
    SharedMutex serviceLock;
    std::shared_ptr<IOrvixService> service ORVIX_GUARDED_BY(serviceLock);  // null while unbound
    std::shared_ptr<OrvixCallback> callback;  // the one last registered; a dispatch thread only
    ndk::ScopedAIBinder_DeathRecipient deathRecipient ORVIX_GUARDED_BY(serviceLock);
};

// Written only by JNI_OnLoad, which replaces and destroys an earlier client; read everywhere.
extern std::unique_ptr<AidlClient> gAidlClient;

}  // namespace orvix
