// A descriptor between two real processes. This program is both: with --peer it is the service.
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "tests/aidl_support.h"
#include "tests/process.h"

namespace orvix_test {
namespace {

constexpr const char* kInstance = "vendor.nuvel.data.orvixservice.IOrvixService/default";

int servePeer() {
    const auto service = recorderOf<IOrvixService>([](const auto&, const auto& arguments) {
        if constexpr (std::is_same_v<decltype(arguments), const std::tuple<ndk::ScopedFileDescriptor>&>)
            dprintf(std::get<0>(arguments).get(), "through");
    });
    if (AServiceManager_addService(service->asBinder().get(), kInstance) != EX_NONE) return 2;
    ABinderProcess_startThreadPool();
    for (;;) pause();
}

TEST(TwoProcesses, ADescriptorArrivesUsableAndIsClosedAfterwards) {
    const Process peer({"--peer"});
    const auto service = IOrvixService::fromBinder(ndk::SpAIBinder(AServiceManager_waitForService(kInstance)));
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const ndk::ScopedFileDescriptor readEnd(ends[0]);
    ASSERT_TRUE(service->sendFdforUID(ndk::ScopedFileDescriptor(ends[1])).isOk());
    std::string text;
    // Ends when nobody has the other end open any more.
    for (char letter; read(readEnd.get(), &letter, 1) == 1;) text += letter;
    EXPECT_EQ(text, "through");
}

}  // namespace
}  // namespace orvix_test

int main(int argc, char** argv) {
    if (argc == 2 && std::string(argv[1]) == "--peer") return orvix_test::servePeer();
    testing::InitGoogleTest(&argc, argv);
    char folder[] = "/tmp/orvix-test-XXXXXX";
    if (mkdtemp(folder) == nullptr) return 2;
    setenv("ORVIX_BINDER_DIR", folder, 1);
    const int result = RUN_ALL_TESTS();
    std::filesystem::remove_all(folder);
    return result;
}
