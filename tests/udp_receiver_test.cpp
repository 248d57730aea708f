// The UDP receiver and its endpoints.

#include "udp_receiver.h"

#include <gtest/gtest.h>

#include <sys/socket.h>

#include <chrono>
#include <cstring>
#include <new>
#include <thread>

using namespace halmor_standin;
using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;

namespace {

// A slave's socket on the loopback interface.
class Sender {
  public:
    UdpEndpoint endpoint() const { return local_endpoint(socket_.get()); }

    void send(const UdpEndpoint& to, const Bytes& payload) {
        const sockaddr_in address = to_sockaddr(to);
        const auto sent = sendto(socket_.get(), payload.data(), payload.size(), 0,
                                 reinterpret_cast<const sockaddr*>(&address), sizeof address);
        ASSERT_EQ(sent, static_cast<ssize_t>(payload.size())) << std::strerror(errno);
    }

  private:
    FileDescriptor socket_ = bound_udp_socket(parse_endpoint("127.0.0.1:0"));
};

void await(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (!condition() && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    ASSERT_TRUE(condition());
}

const UdpEndpoint loopback = parse_endpoint("127.0.0.1:0");

TEST(UdpReceiver, TakesOnlyWhatItsSourceSends) {
    Sender slave;
    Sender stranger;
    std::vector<Bytes> taken;
    UdpReceiver receiver(
        loopback, slave.endpoint(),
        [&](const std::uint8_t* data, std::uint64_t n) { taken.emplace_back(data, data + n); });
    slave.send(receiver.local(), {1});
    stranger.send(receiver.local(), {2});
    slave.send(receiver.local(), {});
    slave.send(receiver.local(), Bytes(65507, 3));
    receiver.stop();
    EXPECT_EQ(taken, (std::vector<Bytes>{{1}, {}, Bytes(65507, 3)}))
        << "what had arrived before the stop is taken";
    const auto counters = receiver.counters();
    EXPECT_EQ(counters.datagrams, 3U);
    EXPECT_EQ(counters.bytes, 65508U);
    EXPECT_EQ(counters.foreign, 1U);
    EXPECT_EQ(counters.kernelDrops, 0U);
    EXPECT_GT(receiver.buffer_size(), 1 << 20);
    EXPECT_EQ(receiver.error(), "");
}

TEST(UdpReceiver, GoesOnAfterAnException) {
    Sender slave;
    std::atomic<int> calls = 0;
    UdpReceiver receiver(loopback, slave.endpoint(), [&](const std::uint8_t*, std::uint64_t) {
        if (++calls == 1)
            throw std::bad_alloc();
    });
    testing::internal::CaptureStderr();
    slave.send(receiver.local(), {1});
    slave.send(receiver.local(), {2});
    await([&] { return calls == 2; });
    receiver.stop();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "udp receiver: a datagram was not taken: std::bad_alloc\n");
    EXPECT_EQ(receiver.counters().failures, 1U);
    EXPECT_EQ(receiver.counters().datagrams, 2U);
}

TEST(UdpReceiver, CountsWhatTheKernelDropped) {
    Sender slave;
    std::atomic<bool> blocked = true;
    UdpReceiver receiver(loopback, slave.endpoint(), [&](const std::uint8_t*, std::uint64_t) {
        while (blocked)
            std::this_thread::yield();
    });
    std::uint64_t sent = 0;
    while (receiver.counters().kernelDrops < 10 && sent < 100000) {
        slave.send(receiver.local(), Bytes(60000, 0));
        ++sent;
    }
    blocked = false;
    await([&] {
        const auto counters = receiver.counters();
        return counters.datagrams + counters.kernelDrops == sent;
    });
    EXPECT_GE(receiver.counters().kernelDrops, 10U);
}

TEST(UdpReceiver, TellsWhenItsSocketHasDied) {
    const Sender slave;
    UdpReceiver receiver(loopback, slave.endpoint(), [](const std::uint8_t*, std::uint64_t) {});
    for (int file = 3; file < 256; ++file) {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        if (getsockname(file, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
            from_sockaddr(address) == receiver.local())
            shutdown(file, SHUT_RD);
    }
    await([&] { return receiver.error() == "Software caused connection abort"; });
}

TEST(UdpReceiver, NamesTheAddressThatItCannotHave) {
    const Sender owner;
    try {
        UdpReceiver receiver(owner.endpoint(), loopback, {});
        FAIL();
    } catch (const std::system_error& error) {
        EXPECT_NE(std::string(error.what()).find(to_text(owner.endpoint())), std::string::npos);
    }
}

TEST(UdpEndpoint, NamesWhatIsWrong) {
    EXPECT_EQ(to_text(parse_endpoint("127.0.0.1:5555")), "127.0.0.1:5555");
    for (const char* text : {"127.0.0.1", "127.0.0.1:", "127.0.0.1:x", "127.0.0.1:1x", ":5",
                             "127.0.0.1:65536", "no such host:5"})
        EXPECT_THROW(parse_endpoint(text), std::invalid_argument) << text;
}

} // namespace
