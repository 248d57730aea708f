// The library as the host loads it: by name, at run time. This program is not linked with it.

#include "api_xcp_daq.h"
#include "temporary_file.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

namespace {

TEST(LibraryLoad, UnloadingFlushesTheFilesAndUnmapsTheLibrary) {
    void* library = dlopen(XCP_DAQ_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    const TemporaryFile file;
    auto* data = static_cast<xcpDAQAppData*>(dlsym(library, "appData"));
    ASSERT_NE(data, nullptr) << dlerror();
    data->logFile.open(file.path());
    data->logFile << "kept";
    EXPECT_EQ(file.text(), "");
    EXPECT_EQ(dlclose(library), 0);
    EXPECT_EQ(file.text(), "kept");
    EXPECT_EQ(dlopen(XCP_DAQ_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

} // namespace
