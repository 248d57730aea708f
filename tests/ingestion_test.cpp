// Datagrams into frames.

#include "api_xcp_daq.h"
#include "api_xcp_daq_threads.h"
#include "table.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>

using namespace std::chrono_literals;
using table::Bytes;
using table::datagram;

namespace {

// The payload in a buffer of exactly its size, so that the sanitizer sees every byte beyond it.
void push(const Bytes& payload) {
    const auto exact = std::make_unique<std::uint8_t[]>(payload.size());
    std::copy(payload.begin(), payload.end(), exact.get());
    api_xcp_daq_push_frame(exact.get(), payload.size());
}

std::vector<Bytes> queued() {
    std::vector<Bytes> frames;
    while (XCPFrameBuffer.size() > 0)
        frames.push_back(XCPFrameBuffer.wait_for_buffer(0ms));
    return frames;
}

std::string output_of(const Bytes& payload) {
    testing::internal::CaptureStdout();
    push(payload);
    return testing::internal::GetCapturedStdout();
}

TEST(Ingestion, QueuesDaqPacketsAndReportsServiceRequests) {
    struct Case {
        Bytes payload;
        std::vector<Bytes> frames;
        std::string output;
    };
    const std::vector<Case> cases = {
        {{}, {}, ""},
        {datagram({{0, 0, 1}, {0xBF, 3}, {5}}), {{0, 0, 1}, {0xBF, 3}, {5}}, ""},
        {datagram({{0xC0, 0}, {0xFB, 0}, {0xFD, 0}, {0xFE, 0}, {0xFF, 0}}), {}, ""},
        {datagram({{}, {1, 0}, {}, {}, {2, 0}}), {{1, 0}, {2, 0}}, ""},
        {datagram({{1, 0}, {0xFC, 0, 'x'}, {2, 0}, {0xFC, 1}, {0xFC, 2}, {0xFC}}),
         {{1, 0}, {2, 0}},
         "Service Request Reset \nServer Request Text \nServer Request Text \n"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(output_of(c.payload), c.output);
        EXPECT_EQ(queued(), c.frames);
    }
    api_xcp_daq_push_frame(nullptr, 100);
    EXPECT_TRUE(queued().empty());
}

TEST(Ingestion, ACutOffMessageIsDroppedAndThoseBeforeItStay) {
    const Bytes whole = datagram({{1, 0, 5, 5}, {2, 0, 6, 6, 6}});
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        push(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
        EXPECT_EQ(queued().size(), length == whole.size() ? 2U : length >= 8 ? 1U : 0U) << length;
    }
}

} // namespace
