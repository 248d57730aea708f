// Datagrams in every form of DAQ packets. What comes out is as many messages, none longer than what
// a packet may grow by, and all of those that the slave laid out have their exact length.

#include "xcp/message.h"
#include "xcp_master/dto_form.h"

#include <cstdlib>

using xcp_master::DaqPlan;
using xcp_master::DaqProperties;

namespace {

constexpr std::size_t entry_bytes[] = {3, 6}; // of the ODTs of each list

DaqPlan plan_of_two_lists() {
    DaqPlan plan;
    for (int list = 0; list < 2; ++list)
        plan.lists.push_back({"l", 0, {{{"a", 0, 0, 3}}, {{"b", 0, 0, 2}, {"c", 0, 0, 4}}}});
    return plan;
}

DaqProperties form_of(const std::uint8_t* choice) {
    constexpr std::size_t stamp_sizes[] = {0, 1, 2, 4};
    DaqProperties slave;
    slave.identificationField = static_cast<xcp_master::IdentificationField>(choice[0] & 3);
    slave.order = (choice[0] & 4) != 0 ? xcp::ByteOrder::big : xcp::ByteOrder::little;
    slave.overloadInPid = (choice[0] & 8) != 0;
    slave.timestampSize = stamp_sizes[choice[0] >> 4 & 3];
    slave.minDaq = choice[1];
    slave.unit_ps = xcp::unit_ps(choice[2] % 13);
    slave.ticksPerUnit = static_cast<std::uint16_t>(choice[3] + 1);
    return slave;
}

std::size_t messages_in(std::span<const std::uint8_t> payload) {
    xcp::MessageWalk walk(payload);
    std::size_t count = 0;
    for (xcp::Message message{}; walk.next(message);)
        ++count;
    return count;
}

// Shorter ones stay as they are, and much longer ones: the receiver counts them.
void check_lengths(std::span<const std::uint8_t> own) {
    xcp::MessageWalk walk(own);
    for (xcp::Message message{}; walk.next(message);) {
        const auto packet = message.packet;
        if (!message.is_daq() || packet.size() < 2 || packet[0] > 1 || packet[1] > 1)
            continue;
        const std::size_t exact = 2 + (packet[0] == 0 ? 4 : 0) + entry_bytes[packet[0]];
        if (packet.size() > exact && packet.size() <= exact + 3)
            std::abort(); // padding that was left
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t choices = 4;
    if (size < choices)
        return 0;
    xcp_master::DtoForm form(form_of(data), plan_of_two_lists(), {10, 20});
    xcp_master::Time arrival{};
    for (std::size_t at = choices; at + 1 < size;) { // datagrams, each behind its length
        const std::size_t length = std::min<std::size_t>(data[at], size - at - 1);
        const std::span payload(data + at + 1, length);
        arrival += std::chrono::microseconds(data[at] * data[at]);
        const auto own = form.take(payload, arrival);
        if (messages_in(own) != messages_in(payload))
            std::abort();
        check_lengths(own);
        at += 1 + length;
    }
    return 0;
}
