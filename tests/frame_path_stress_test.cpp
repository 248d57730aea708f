// The frame path under load: several pushing threads, the worker, and a controlling thread that
// starts and stops it.

#include "api_xcp_daq.h"
#include "api_xcp_daq_threads.h"
#include "host/standin/variable_store.h"
#include "table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>

using namespace halmor_standin;
using namespace std::chrono_literals;
using table::Bytes;

namespace {

constexpr int producers = 3;

// Each producer has a DAQ list of its own, whose one variable counts up.
class FramePathUnderLoad : public testing::Test, public WriteObserver {
  protected:
    api_xcp_daq object;
    std::array<std::uint32_t, producers> latest{}; // the worker's, while there is one
    std::uint64_t outOfOrder = 0;                  // the same
    std::function<void()> onWrite;
    std::atomic<bool> stop = false;

    FramePathUnderLoad() {
        for (int producer = 0; producer < producers; ++producer) {
            const std::string name = std::to_string(producer);
            VariableStore::instance().define(name, VariableKind::real, "");
            table::add_plain(name, producer, 0, 0, 4);
        }
        VariableStore::observe(this);
    }
    ~FramePathUnderLoad() override { VariableStore::observe(nullptr); }

    void written(const Variable& variable, double value, const timespec&) override {
        if (onWrite)
            onWrite();
        auto& last = latest[static_cast<std::size_t>(variable.name()[0] - '0')];
        const auto number = static_cast<std::uint32_t>(value);
        outOfOrder += number == last + 1 ? 0 : 1;
        last = number;
    }

    static Bytes numbered(int producer, std::uint32_t number) {
        Bytes packet = {0, static_cast<std::uint8_t>(producer)};
        for (int shift = 0; shift < 32; shift += 8)
            packet.push_back(static_cast<std::uint8_t>(number >> shift));
        return table::message(packet);
    }

    // Pushes numbers until told to stop, but never far ahead of the worker; gives the last one.
    std::future<std::uint32_t> produce(int producer) {
        return std::async(std::launch::async, [this, producer] {
            std::uint32_t number = 0;
            while (!stop) {
                if (XCPFrameBuffer.size() > 1000) {
                    std::this_thread::yield();
                    continue;
                }
                const Bytes payload = numbered(producer, ++number);
                api_xcp_daq_push_frame(payload.data(), payload.size());
            }
            return number;
        });
    }

    void drain() {
        object.startWorkerThreads();
        while (XCPFrameBuffer.size() > 0)
            std::this_thread::yield();
        object.stopWorkerThreads();
    }
};

TEST_F(FramePathUnderLoad, StartAndStopLoseNothingAndRepeatNothing) {
    api_xcp_daq::enableDAQProcessing();
    std::vector<std::future<std::uint32_t>> pushed;
    for (int producer = 0; producer < producers; ++producer)
        pushed.push_back(produce(producer));
    std::chrono::steady_clock::duration longestStop{};
    for (int round = 0; round < 3000; ++round) {
        object.startWorkerThreads();
        std::this_thread::yield();
        const auto start = std::chrono::steady_clock::now();
        object.stopWorkerThreads();
        longestStop = std::max(longestStop, std::chrono::steady_clock::now() - start);
    }
    stop = true;
    std::array<std::uint32_t, producers> last{};
    for (std::size_t producer = 0; producer < producers; ++producer)
        last[producer] = pushed[producer].get();
    drain();
    EXPECT_EQ(latest, last);
    EXPECT_EQ(outOfOrder, 0U);
    EXPECT_LT(longestStop, 2s) << "one wait plus one frame, generously";
}

TEST_F(FramePathUnderLoad, ABlockedHostHoldsTheWorkerAndNothingElse) {
    std::promise<void> inside;
    std::promise<void> goOn;
    bool first = true;
    onWrite = [&] {
        if (std::exchange(first, false)) {
            inside.set_value();
            goOn.get_future().wait();
        }
    };
    api_xcp_daq::enableDAQProcessing();
    object.startWorkerThreads();
    constexpr std::uint32_t frames = 20000;
    for (std::uint32_t number = 1; number <= frames; ++number) {
        const Bytes payload = numbered(0, number);
        api_xcp_daq_push_frame(payload.data(), payload.size());
    }
    inside.get_future().wait();
    EXPECT_EQ(XCPFrameBuffer.size(), frames - 1);
    goOn.set_value();
    object.stopWorkerThreads();
    drain();
    EXPECT_EQ(latest[0], frames);
    EXPECT_EQ(outOfOrder, 0U);
}

} // namespace
