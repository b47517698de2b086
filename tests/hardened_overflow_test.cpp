// Where the library counts, a number that does not fit ends the process, in every build: a parcel that lies about its
// position is not to be worked on, and a semaphore that lost its count would lose a wake-up.

#include <android/binder_parcel.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>
#include <tuple>

#include "aidl/Records.h"
#include "client/EventSemaphore.h"

namespace {

constexpr int32_t kMin = INT32_MIN, kMax = INT32_MAX;

// The parcel of this test: it is where it was put until something is read or written, and at end from then on.
int32_t end = 0;
int32_t position = 0;
int32_t written = 0;  // by the last write

binder_status_t write(int32_t value) {
    written = value;
    position = end;
    return STATUS_OK;
}

}  // namespace

extern "C" {
int32_t AParcel_getDataPosition(const AParcel*) { return position; }
binder_status_t AParcel_setDataPosition(const AParcel*, int32_t) { return STATUS_OK; }
binder_status_t AParcel_writeInt32(AParcel*, int32_t value) { return write(value); }
binder_status_t AParcel_writeBool(AParcel*, bool value) { return write(value); }
binder_status_t AParcel_readInt32(const AParcel*, int32_t* value) { return write(*value = 16); }
binder_status_t AParcel_readBool(const AParcel*, bool*) { return STATUS_OK; }
}

namespace {

using aidl::vendor::nuvel::data::orvixservice::BatteryState;
const auto kAborted = testing::KilledBySignal(SIGABRT);

binder_status_t across(int32_t from, int32_t to, bool writes) {
    position = from;
    end = to;
    BatteryState record;
    return writes ? record.writeToParcel(nullptr) : record.readFromParcel(nullptr);
}

TEST(RecordSize, OverflowEndsTheProcess) {
    const std::tuple<int32_t, int32_t, bool> cases[] = {
        {kMin, 0, true}, {-2, kMax, true}, {kMax, -2, true}, {kMin, 0, false}, {-2, kMax, false}};
    for (const auto& [from, to, writes] : cases) EXPECT_EXIT((void)across(from, to, writes), kAborted, "") << from;
    // The largest that fits does not.
    EXPECT_EQ(STATUS_OK, across(-1, kMax - 1, true));
    EXPECT_EQ(kMax, written);
    EXPECT_EQ(STATUS_OK, across(0, kMax, false));
}

TEST(SemaphoreCount, OverflowEndsTheProcess) {
    orvix::EventSemaphore almost(UINT64_MAX - 1);
    almost.release();
    EXPECT_EXIT(almost.release(), kAborted, "");
    almost.acquire();
    almost.release();
}

}  // namespace
