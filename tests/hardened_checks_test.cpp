// That the hardened build's checks are in the code: each fault ends the process.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdint>

int32_t add(int32_t a, int32_t b);
int callWrongClass();

namespace {

volatile int32_t one = 1;  // read at run time: nothing below is computed by the compiler

TEST(Hardened, FaultsEndTheProcess) {
    EXPECT_EQ(3, add(one, 2));
    EXPECT_EXIT((void)add(INT32_MAX, one), testing::KilledBySignal(SIGABRT), "ubsan: add-overflow");
    EXPECT_EXIT((void)callWrongClass(), testing::KilledBySignal(SIGILL), "");
}

}  // namespace
