// The library as the host loads it: by name, at run time. This program is not linked with it.

#include "api_xcp_daq.h"
#include "api_xcp_daq_threads.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

namespace {

class LibraryLoad : public testing::Test {
  protected:
    void* library = dlopen(XCP_DAQ_LIBRARY, RTLD_NOW | RTLD_LOCAL);

    template <class T>
    T& global(const char* name) {
        void* address = dlsym(library, name);
        if (address == nullptr)
            throw std::runtime_error(dlerror());
        return *static_cast<T*>(address);
    }

    static bool mapped() {
        std::ifstream maps("/proc/self/maps");
        const std::string text{std::istreambuf_iterator<char>(maps), {}};
        return text.find("libapi_xcp_daq.so") != std::string::npos;
    }
};

TEST_F(LibraryLoad, GlobalsHaveTheirFirstValues) {
    ASSERT_NE(library, nullptr) << dlerror();
    const auto& data = global<xcpDAQAppData>("appData");
    EXPECT_TRUE(data.serverName.empty() && data.registeredName.empty());
    EXPECT_EQ(data.daqList[0].listNumber + data.daqCount + data.serverPort, 0);
    EXPECT_FALSE(data.logEnabled || data.logFile.is_open() || data.specFile.is_open());
    auto& mutex = global<std::mutex>("XCPDAQAppData_mutex");
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
    const auto& name = global<char[50]>("Registered_name");
    EXPECT_EQ(std::string(name, 50), std::string(50, '\0'));
    EXPECT_EQ(global<std::int16_t>("Spec_file_line_count"), 0);
    EXPECT_EQ(global<std::int16_t>("Override_enable"), 0);
    EXPECT_EQ(global<std::int64_t>("XCPFrameCount"), 0);
    EXPECT_EQ(global<std::int32_t>("frameThreadStopped"), 0);
    EXPECT_FALSE(global<bool>("_ZN11api_xcp_daq17daqProcessingFlagE"));
    EXPECT_TRUE(global<std::vector<std::uint8_t>>("EmptyFrameBuffer").empty());
    EXPECT_FALSE(global<std::counting_semaphore<>>("XcpFrameBufferCount").try_acquire());
    EXPECT_EQ(global<const std::uint64_t>("MAX_TIME_DAQ_COUNT_VALUE"), 4294967295U);
    EXPECT_EQ(global<const std::uint64_t>("BILLION_NSEC"), 1000000000U);
    EXPECT_EQ(global<const float>("MILLION_NSEC"), 1000000.0F);
}

TEST_F(LibraryLoad, UnloadingFlushesTheFilesAndUnmapsTheLibrary) {
    ASSERT_NE(library, nullptr) << dlerror();
    EXPECT_TRUE(mapped());
    const TemporaryFile file;
    auto& data = global<xcpDAQAppData>("appData");
    data.logFile.open(file.path());
    data.logFile << "kept";
    EXPECT_EQ(file.text(), "");
    EXPECT_EQ(dlclose(library), 0);
    EXPECT_EQ(file.text(), "kept");
    EXPECT_FALSE(mapped());
}

} // namespace
