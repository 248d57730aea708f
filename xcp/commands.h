#pragma once
// The commands of a DAQ session and their positive answers as plain values (ASAM MCD-1 XCP,
// protocol layer). A packet begins with its code; `each` names the fields behind it in their order.

#include "message.h"
#include "packet_fields.h"

#include <cstdint>
#include <optional>
#include <span>
#include <tuple>
#include <vector>

namespace xcp {

// First byte of what a slave sends beside DAQ packets.
constexpr std::uint8_t response_pid = 0xFF;
constexpr std::uint8_t error_pid = 0xFE;

// An answer without fields.
struct Acknowledgement {
    template <class Fields>
    void each(Fields& /*fields*/) {}
};

// ---- the session ----

struct Connect {
    static constexpr std::uint8_t code = 0xFF;
    static constexpr const char* name = "CONNECT";
    std::uint8_t mode = 0; // 0: normal

    template <class Fields>
    void each(Fields& fields) {
        fields("mode", mode);
    }
    struct Answer {
        static constexpr std::uint8_t daq_resource = 0x04;
        static constexpr std::uint8_t big_endian = 0x01;
        static constexpr std::uint8_t granularity = 0x06; // of addresses: 0 byte, 2 word, 4 dword
        std::uint8_t resources = 0;
        std::uint8_t communicationMode = 0;
        std::uint8_t maxCto = 0;  // bytes of a command or an answer
        std::uint16_t maxDto = 0; // bytes of a DAQ packet
        std::uint8_t protocolVersion = 1;
        std::uint8_t transportVersion = 1;

        ByteOrder order() const {
            return (communicationMode & big_endian) != 0 ? ByteOrder::big : ByteOrder::little;
        }
        template <class Fields>
        void each(Fields& fields) {
            fields("resources", resources);
            fields("communication mode", communicationMode);
            fields("MAX_CTO", maxCto);
            fields.order(order()); // MAX_DTO has the order that was just told
            fields("MAX_DTO", maxDto);
            fields("protocol version", protocolVersion);
            fields("transport version", transportVersion);
        }
    };
};

struct Disconnect {
    static constexpr std::uint8_t code = 0xFE;
    static constexpr const char* name = "DISCONNECT";
    using Answer = Acknowledgement;
    template <class Fields>
    void each(Fields& /*fields*/) {}
};

struct GetStatus {
    static constexpr std::uint8_t code = 0xFD;
    static constexpr const char* name = "GET_STATUS";
    template <class Fields>
    void each(Fields& /*fields*/) {}
    struct Answer {
        static constexpr std::uint8_t daq_running = 0x40;   // session status
        static constexpr std::uint8_t daq_protected = 0x04; // locked by seed and key
        std::uint8_t session = 0;
        std::uint8_t protection = 0;
        std::uint16_t configuration = 0;

        template <class Fields>
        void each(Fields& fields) {
            fields("session", session);
            fields("protection", protection);
            fields.reserved(1);
            fields("configuration", configuration);
        }
    };
};

// Its answer is the error ERR_CMD_SYNCH.
struct Synch {
    static constexpr std::uint8_t code = 0xFC;
    static constexpr const char* name = "SYNCH";
    using Answer = Acknowledgement;
    template <class Fields>
    void each(Fields& /*fields*/) {}
};

struct GetCommModeInfo {
    static constexpr std::uint8_t code = 0xFB;
    static constexpr const char* name = "GET_COMM_MODE_INFO";
    template <class Fields>
    void each(Fields& /*fields*/) {}
    struct Answer {
        std::uint8_t optional = 0;
        std::uint8_t maxBlock = 0;
        std::uint8_t minSeparation = 0;
        std::uint8_t queueSize = 0;
        std::uint8_t driverVersion = 0;

        template <class Fields>
        void each(Fields& fields) {
            fields.reserved(1);
            fields("optional", optional);
            fields.reserved(1);
            fields("MAX_BS", maxBlock);
            fields("MIN_ST", minSeparation);
            fields("queue size", queueSize);
            fields("driver version", driverVersion);
        }
    };
};

struct GetId {
    static constexpr std::uint8_t code = 0xFA;
    static constexpr const char* name = "GET_ID";
    std::uint8_t type = 1; // 1: the name of the A2L file

    template <class Fields>
    void each(Fields& fields) {
        fields("type", type);
    }
    struct Answer {
        static constexpr std::uint8_t in_answer =
            0x01; // mode: the text follows, else UPLOAD has it
        std::uint8_t mode = 0;
        std::uint32_t length = 0;
        std::vector<std::uint8_t> text;

        template <class Fields>
        void each(Fields& fields) {
            fields("mode", mode);
            fields.reserved(2);
            fields("length", length);
            fields("text", text);
        }
    };
};

// From where the answer before it has set the memory pointer.
struct Upload {
    static constexpr std::uint8_t code = 0xF5;
    static constexpr const char* name = "UPLOAD";
    std::uint8_t count = 0;

    template <class Fields>
    void each(Fields& fields) {
        fields("count", count);
    }
    struct Answer {
        std::vector<std::uint8_t> data;

        template <class Fields>
        void each(Fields& fields) {
            fields("data", data);
        }
    };
};

// ---- what the slave can ----

struct GetDaqProcessorInfo {
    static constexpr std::uint8_t code = 0xDA;
    static constexpr const char* name = "GET_DAQ_PROCESSOR_INFO";
    template <class Fields>
    void each(Fields& /*fields*/) {}
    struct Answer {
        static constexpr std::uint8_t dynamic = 0x01; // properties
        static constexpr std::uint8_t timestamps = 0x10;
        static constexpr std::uint8_t overload_in_pid = 0x40;
        static constexpr std::uint8_t overload_as_event = 0x80;
        std::uint8_t properties = 0;
        std::uint16_t maxDaq = 0;
        std::uint16_t maxEvent = 0;
        std::uint8_t minDaq = 0;
        std::uint8_t key = 0; // bits 6 and 7: form of the identification field

        unsigned identification_field() const { return key >> 6; }
        template <class Fields>
        void each(Fields& fields) {
            fields("properties", properties);
            fields("MAX_DAQ", maxDaq);
            fields("MAX_EVENT_CHANNEL", maxEvent);
            fields("MIN_DAQ", minDaq);
            fields("key byte", key);
        }
    };
};

struct GetDaqResolutionInfo {
    static constexpr std::uint8_t code = 0xD9;
    static constexpr const char* name = "GET_DAQ_RESOLUTION_INFO";
    template <class Fields>
    void each(Fields& /*fields*/) {}
    struct Answer {
        std::uint8_t entryGranularity = 1;
        std::uint8_t maxEntrySize = 0;
        std::uint8_t stimGranularity = 1;
        std::uint8_t maxStimEntrySize = 0;
        std::uint8_t timestampMode = 0;
        std::uint16_t timestampTicks = 1; // in a unit

        std::size_t timestamp_size() const { return timestampMode & 7U; }
        bool timestamp_fixed() const { return (timestampMode & 8U) != 0; }
        unsigned timestamp_unit() const { return timestampMode >> 4; } // 0: 1 ns; see unit_ps()
        template <class Fields>
        void each(Fields& fields) {
            fields("granularity", entryGranularity);
            fields("largest entry", maxEntrySize);
            fields("STIM granularity", stimGranularity);
            fields("largest STIM entry", maxStimEntrySize);
            fields("timestamp mode", timestampMode);
            fields("ticks", timestampTicks);
        }
    };
};

struct GetDaqEventInfo {
    static constexpr std::uint8_t code = 0xD7;
    static constexpr const char* name = "GET_DAQ_EVENT_INFO";
    std::uint16_t event = 0;

    template <class Fields>
    void each(Fields& fields) {
        fields.reserved(1);
        fields("event", event);
    }
    struct Answer {
        static constexpr std::uint8_t daq = 0x04; // properties
        std::uint8_t properties = 0;
        std::uint8_t maxLists = 0;
        std::uint8_t nameLength = 0; // UPLOAD has the name
        std::uint8_t cycle = 0;      // in units; 0: not cyclic
        std::uint8_t unit = 0;
        std::uint8_t priority = 0;

        template <class Fields>
        void each(Fields& fields) {
            fields("properties", properties);
            fields("largest number of lists", maxLists);
            fields("name length", nameLength);
            fields("cycle", cycle);
            fields("unit", unit);
            fields("priority", priority);
        }
    };
};

// Picoseconds of a time unit's code, as events and timestamps have it: 0 is 1 ns, 9 is 1 s, and 10
// to 12 are 1, 10 and 100 ps. 0 for a code that there is not.
constexpr std::uint64_t unit_ps(unsigned code) {
    if (code > 12)
        return 0;
    std::uint64_t unit = code < 10 ? 1000 : 1;
    for (unsigned i = code < 10 ? code : code - 10; i > 0; --i)
        unit *= 10;
    return unit;
}

struct GetDaqClock {
    static constexpr std::uint8_t code = 0xDC;
    static constexpr const char* name = "GET_DAQ_CLOCK";
    template <class Fields>
    void each(Fields& /*fields*/) {}
    struct Answer {
        std::uint8_t trigger = 0;
        std::uint8_t format = 0;
        std::uint32_t clock = 0; // ticks

        template <class Fields>
        void each(Fields& fields) {
            fields.reserved(1);
            fields("trigger", trigger);
            fields("format", format);
            fields("clock", clock);
        }
    };
};

// ---- DAQ lists ----

struct FreeDaq {
    static constexpr std::uint8_t code = 0xD6;
    static constexpr const char* name = "FREE_DAQ";
    using Answer = Acknowledgement;
    template <class Fields>
    void each(Fields& /*fields*/) {}
};

struct AllocDaq {
    static constexpr std::uint8_t code = 0xD5;
    static constexpr const char* name = "ALLOC_DAQ";
    using Answer = Acknowledgement;
    std::uint16_t count = 0;

    template <class Fields>
    void each(Fields& fields) {
        fields.reserved(1);
        fields("lists", count);
    }
};

struct AllocOdt {
    static constexpr std::uint8_t code = 0xD4;
    static constexpr const char* name = "ALLOC_ODT";
    using Answer = Acknowledgement;
    std::uint16_t daq = 0;
    std::uint8_t count = 0;

    template <class Fields>
    void each(Fields& fields) {
        fields.reserved(1);
        fields("list", daq);
        fields("ODTs", count);
    }
};

struct AllocOdtEntry {
    static constexpr std::uint8_t code = 0xD3;
    static constexpr const char* name = "ALLOC_ODT_ENTRY";
    using Answer = Acknowledgement;
    std::uint16_t daq = 0;
    std::uint8_t odt = 0;
    std::uint8_t count = 0;

    template <class Fields>
    void each(Fields& fields) {
        fields.reserved(1);
        fields("list", daq);
        fields("ODT", odt);
        fields("entries", count);
    }
};

struct SetDaqPtr {
    static constexpr std::uint8_t code = 0xE2;
    static constexpr const char* name = "SET_DAQ_PTR";
    using Answer = Acknowledgement;
    std::uint16_t daq = 0;
    std::uint8_t odt = 0;
    std::uint8_t entry = 0;

    template <class Fields>
    void each(Fields& fields) {
        fields.reserved(1);
        fields("list", daq);
        fields("ODT", odt);
        fields("entry", entry);
    }
};

// The slave's pointer moves on to the next entry.
struct WriteDaq {
    static constexpr std::uint8_t code = 0xE1;
    static constexpr const char* name = "WRITE_DAQ";
    static constexpr std::uint8_t no_bit = 0xFF;
    using Answer = Acknowledgement;
    std::uint8_t bitOffset = no_bit;
    std::uint8_t size = 0; // in units of the address granularity
    std::uint8_t extension = 0;
    std::uint32_t address = 0;

    template <class Fields>
    void each(Fields& fields) {
        fields("bit offset", bitOffset);
        fields("size", size);
        fields("extension", extension);
        fields("address", address);
    }
};

// Several WRITE_DAQ in one, each followed by a byte that aligns the next.
struct WriteDaqMultiple {
    static constexpr std::uint8_t code = 0xC7;
    static constexpr const char* name = "WRITE_DAQ_MULTIPLE";
    using Answer = Acknowledgement;
    std::vector<WriteDaq> entries; // at most 255

    template <class Fields>
    void each(Fields& fields) {
        auto count = static_cast<std::uint8_t>(entries.size());
        fields("entries", count);
        entries.resize(count);
        for (WriteDaq& entry : entries) {
            fields("bit offset", entry.bitOffset);
            fields("size", entry.size);
            fields("address", entry.address);
            fields("extension", entry.extension);
            fields.reserved(1);
        }
    }
};

// Of a list that the slave has by itself.
struct ClearDaqList {
    static constexpr std::uint8_t code = 0xE3;
    static constexpr const char* name = "CLEAR_DAQ_LIST";
    using Answer = Acknowledgement;
    std::uint16_t daq = 0;

    template <class Fields>
    void each(Fields& fields) {
        fields.reserved(1);
        fields("list", daq);
    }
};

struct SetDaqListMode {
    static constexpr std::uint8_t code = 0xE0;
    static constexpr const char* name = "SET_DAQ_LIST_MODE";
    static constexpr std::uint8_t stim = 0x02; // mode
    static constexpr std::uint8_t timestamp = 0x10;
    static constexpr std::uint8_t pid_off = 0x20;
    using Answer = Acknowledgement;
    std::uint8_t mode = 0;
    std::uint16_t daq = 0;
    std::uint16_t event = 0;
    std::uint8_t prescaler = 1;
    std::uint8_t priority = 0;

    template <class Fields>
    void each(Fields& fields) {
        fields("mode", mode);
        fields("list", daq);
        fields("event", event);
        fields("prescaler", prescaler);
        fields("priority", priority);
    }
};

struct StartStopDaqList {
    static constexpr std::uint8_t code = 0xDE;
    static constexpr const char* name = "START_STOP_DAQ_LIST";
    static constexpr std::uint8_t stop = 0; // mode
    static constexpr std::uint8_t start = 1;
    static constexpr std::uint8_t select = 2;
    std::uint8_t mode = select;
    std::uint16_t daq = 0;

    template <class Fields>
    void each(Fields& fields) {
        fields("mode", mode);
        fields("list", daq);
    }
    struct Answer {
        std::uint8_t firstPid = 0;

        template <class Fields>
        void each(Fields& fields) {
            fields("first PID", firstPid);
        }
    };
};

struct StartStopSynch {
    static constexpr std::uint8_t code = 0xDD;
    static constexpr const char* name = "START_STOP_SYNCH";
    static constexpr std::uint8_t stop_all = 0; // mode
    static constexpr std::uint8_t start_selected = 1;
    static constexpr std::uint8_t stop_selected = 2;
    static constexpr std::uint8_t prepare_start = 3;
    using Answer = Acknowledgement;
    std::uint8_t mode = stop_all;

    template <class Fields>
    void each(Fields& fields) {
        fields("mode", mode);
    }
};

using AllCommands =
    std::tuple<Connect, Disconnect, GetStatus, Synch, GetCommModeInfo, GetId, Upload,
               GetDaqProcessorInfo, GetDaqResolutionInfo, GetDaqEventInfo, GetDaqClock, FreeDaq,
               AllocDaq, AllocOdt, AllocOdtEntry, SetDaqPtr, WriteDaq, WriteDaqMultiple,
               ClearDaqList, SetDaqListMode, StartStopDaqList, StartStopSynch>;

// ---- packets ----

template <class Command>
std::vector<std::uint8_t> command_packet(Command command, ByteOrder order) {
    std::vector<std::uint8_t> packet = {Command::code};
    PacketWriter writer(packet, order);
    command.each(writer);
    return packet;
}

template <class Answer>
std::vector<std::uint8_t> answer_packet(Answer answer, ByteOrder order) {
    std::vector<std::uint8_t> packet = {response_pid};
    PacketWriter writer(packet, order);
    answer.each(writer);
    return packet;
}

// Fields behind the first byte. Empty when the packet is too short for them; bytes behind them are
// passed over.
template <class Value>
std::optional<Value> read_packet(std::span<const std::uint8_t> packet, ByteOrder order) {
    if (packet.empty())
        return {};
    Value value;
    PacketReader reader(packet.subspan(1), order);
    value.each(reader);
    return reader.complete() ? std::optional(value) : std::nullopt;
}

} // namespace xcp
