// Packets of a slave with a four-byte header, brought into the library's form, through the frame
// path; against the same packets in the library's form, which go untouched.

#include "frame_path.h"
#include "xcp_master/dto_form.h"

#include <memory>

namespace bench {

namespace {

using xcp_master::DaqPlan;
using xcp_master::DaqProperties;
using xcp_master::DtoForm;
using xcp_master::IdentificationField;

// ODT byte, DAQ byte become ODT byte, fill byte, DAQ word.
Frame with_long_header(const Frame& payload) {
    Frame longer;
    xcp::MessageWalk messages(payload);
    for (xcp::Message message{}; messages.next(message);) {
        Frame packet = {message.packet[0], 0xAA, message.packet[1], 0};
        packet.insert(packet.end(), message.packet.begin() + 2, message.packet.end());
        xcp::append_message(longer, message.ctr, packet);
    }
    return longer;
}

Prepare through_form(std::size_t packetSize, IdentificationField field) {
    return [packetSize, field] {
        const Datagram datagram = datagram_for(packetSize);
        const auto entries = static_cast<std::uint8_t>(packetSize - xcp::identification_size);
        DaqPlan plan;
        plan.stamped = false;
        plan.lists.push_back({"list", 0, {{{"entries", 0, 0, entries}}}});
        DaqProperties slave;
        slave.identificationField = field;
        auto form = std::make_shared<DtoForm>(slave, plan, std::vector<std::uint8_t>{0});
        auto path = std::make_shared<LibraryFramePath>();
        const Frame payload = field == IdentificationField::relative_byte
                                  ? datagram.payload
                                  : with_long_header(datagram.payload);
        return [path, form, payload, packets = datagram.packets] {
            const std::uint64_t before = updates_of_last(0, 0);
            return seconds_of([&] {
                for (std::size_t i = 0; i < path_datagrams; ++i) {
                    const auto own = form->take(payload, {});
                    api_xcp_daq_push_frame(own.data(), own.size());
                }
                await_updates(before + path_datagrams * packets);
            });
        };
    };
}

} // namespace

void add_form() {
    for (const std::size_t size : {32, 240}) {
        const std::size_t items = path_items(datagram_for(size));
        const Row row{"form", size_text(size) + ", four-byte header", "at least 0.8", true, true};
        add(row, "library", items, through_form(size, IdentificationField::aligned));
        add(row, "floor", items, through_form(size, IdentificationField::relative_byte));
    }
}

} // namespace bench
