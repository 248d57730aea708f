// Sockets, the receiver, and endpoints.

#include "io/udp_receiver.h"

#include <gtest/gtest.h>

#include <sys/socket.h>

#include <chrono>
#include <functional>
#include <system_error>
#include <thread>
#include <vector>

using namespace io;
using namespace std::chrono_literals;
using Bytes = std::vector<std::uint8_t>;

namespace {

void await(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + 10s;
    while (!condition() && std::chrono::steady_clock::now() < end)
        std::this_thread::yield();
    ASSERT_TRUE(condition());
}

const UdpEndpoint loopback = parse_endpoint("127.0.0.1:0");

TEST(UdpReceiver, TakesOnlyWhatItsSourceSends) {
    const UdpSocket slave(loopback);
    const UdpSocket stranger(loopback);
    std::vector<Bytes> taken;
    UdpReceiver receiver(
        UdpSocket(loopback), slave.local(),
        [&](const std::uint8_t* data, std::uint64_t n) { taken.emplace_back(data, data + n); });
    slave.send(receiver.local(), Bytes{1});
    stranger.send(receiver.local(), Bytes{2});
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

TEST(UdpReceiver, CountsWhatTheKernelDropped) {
    const UdpSocket slave(loopback);
    std::atomic<bool> blocked = true;
    UdpReceiver receiver(UdpSocket(loopback), slave.local(),
                         [&](const std::uint8_t*, std::uint64_t) {
                             while (blocked)
                                 std::this_thread::yield();
                         });
    std::uint64_t sent = 0;
    for (; receiver.counters().kernelDrops < 10 && sent < 100000; ++sent)
        slave.send(receiver.local(), Bytes(60000, 0));
    blocked = false;
    await([&] {
        const auto counters = receiver.counters();
        return counters.datagrams + counters.kernelDrops == sent;
    });
    EXPECT_GE(receiver.counters().kernelDrops, 10U);
}

TEST(UdpReceiver, ReportsThatItsSocketHasDied) {
    UdpSocket socket(loopback);
    const int descriptor = socket.descriptor();
    UdpReceiver receiver(std::move(socket), loopback, [](const std::uint8_t*, std::uint64_t) {});
    shutdown(descriptor, SHUT_RD);
    await([&] { return receiver.error() == "Software caused connection abort"; });
}

TEST(UdpSocket, AnswersToWhereAMessageCameFrom) {
    const UdpSocket master(loopback);
    const UdpSocket slave(loopback);
    master.send(slave.local(), Bytes{7});
    sockaddr_in from{};
    socklen_t size = sizeof from;
    std::uint8_t byte = 0;
    ASSERT_EQ(recvfrom(slave.descriptor(), &byte, 1, 0, reinterpret_cast<sockaddr*>(&from), &size),
              1);
    EXPECT_EQ(from_sockaddr(from), master.local());
    EXPECT_THROW(slave.send(master.local(), Bytes(70000)), std::system_error);
}

TEST(UdpEndpoint, NamesWhatIsWrong) {
    EXPECT_EQ(to_text(parse_endpoint("127.0.0.1:5555")), "127.0.0.1:5555");
    for (const char* text : {"127.0.0.1", "127.0.0.1:", "127.0.0.1:x", "127.0.0.1:1x",
                             "127.0.0.1:-5", ":5", "127.0.0.1:65536", "no such host:5"})
        EXPECT_THROW(parse_endpoint(text), std::invalid_argument) << text;
}

} // namespace
