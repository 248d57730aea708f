#pragma once
// An A2L file (ASAM MCD-2 MC, 1.5 to 1.7) as plain values: the part that a DAQ tool needs.
// Everything else is skipped block by block without being understood.

#include <array>
#include <chrono>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace a2l {

enum class DataType {
    ubyte,
    sbyte,
    uword,
    sword,
    ulong,
    slong,
    a_uint64,
    a_int64,
    float16_ieee,
    float32_ieee,
    float64_ieee
};

// The type's word in an A2L file, and its bytes.
const char* name_of(DataType type);
std::size_t size_of(DataType type);

enum class ByteOrder { little, big }; // MSB_LAST, MSB_FIRST

// One value that a slave can send: a MEASUREMENT, or one element of its array, with what the module
// says where the MEASUREMENT says nothing.
struct Signal {
    std::string name; // with its indices, as it was asked for
    DataType type = DataType::ubyte;
    ByteOrder byteOrder = ByteOrder::little;
    std::uint32_t address = 0; // of the element
    std::uint8_t addressExtension = 0;
    std::optional<std::uint64_t> bitMask;
    double factor = 1; // physical = factor * raw + offset
    double offset = 0;
    double lower = 0; // a plausible range, often rougher than what the type can hold
    double upper = 0;
    std::string unit;
    std::string displayIdentifier;
    std::optional<std::uint16_t> event; // fixed or default
};

struct Event {
    std::uint16_t number = 0;
    std::string name;
    std::string shortName;
    bool daq = true;            // false: for stimulation alone
    bool packed = false;        // its lists are sampled several times into one packet, always
    std::uint64_t cycle_ns = 0; // 0: not cyclic, or not known
};

enum class IdentificationField { absolute, relative_byte, relative_word, relative_word_aligned };

struct Timestamp {
    std::uint16_t ticks = 1;
    std::size_t size = 0;         // bytes: 1, 2 or 4
    std::uint64_t unit_ps = 1000; // of a tick: from 1 ps to 1 s
    bool fixed = false;           // every DAQ list is stamped
};

// IF_DATA XCP or XCPplus; what stands inside XCP_ON_UDP_IP overrules the common part. Empty where
// the file says nothing.
struct Xcp {
    std::array<std::chrono::milliseconds, 7> timeouts{}; // T1 to T7; 0 ms: not given
    std::optional<std::uint8_t> maxCto;                  // bytes
    std::optional<std::uint16_t> maxDto;
    std::optional<ByteOrder> byteOrder;
    std::optional<std::uint8_t> addressGranularity; // bytes: 1, 2 or 4

    // The block DAQ.
    bool hasDaq = false;
    bool dynamic = false;
    std::uint16_t maxDaq = 0;
    std::uint16_t maxEventChannel = 0;
    std::uint8_t minDaq = 0;
    IdentificationField identificationField = IdentificationField::absolute;
    std::uint8_t entryGranularity = 1; // bytes: 1, 2, 4 or 8
    std::uint8_t maxEntrySize = 0;     // bytes; 0: not given
    bool overloadInPid = false;
    bool overloadAsEvent = false;
    std::optional<Timestamp> timestamp;
    std::vector<Event> events;

    // The transport.
    std::optional<std::uint16_t> port;
    std::string address;              // as it stands there
    std::string hostName;             // as it stands there
    std::uint8_t packetAlignment = 1; // bytes: 1, 2 or 4, of which a slave's packet is a multiple
};

// The bytes of one value in the slave's memory.
struct MemoryPlace {
    std::uint8_t extension = 0;
    std::uint32_t address = 0;
    std::size_t size = 0;

    auto operator<=>(const MemoryPlace&) const = default;
};

// Threads: once it is read, any number of threads may ask.
class File {
  public:
    // Reads the file, and the files that it includes, in one pass. Throws io::FileError for a file
    // that cannot be read or that is no A2L file; what is wrong with one MEASUREMENT or
    // COMPU_METHOD is kept until it is asked for.
    explicit File(const std::string& path);
    ~File();
    File(File&&) noexcept;
    File& operator=(File&&) noexcept;

    const Xcp& xcp() const;

    // A line each, with file and line: what the file says in two ways, or what was left out.
    const std::vector<std::string>& warnings() const;

    // The names of all MEASUREMENTs, in the order of the file; of arrays without indices.
    std::vector<std::string> names() const;

    // Elements per dimension of a MEASUREMENT; empty for a single value, or when there is none.
    std::vector<std::uint32_t> dimensions(std::string_view name) const;

    // Empty when there is no such MEASUREMENT. The name of an array's element ends in [3] or
    // [1][2]. Throws io::FileError, with the line in the A2L file, for one that cannot be measured:
    // virtual, without address, of an unknown data type or a conversion that is not linear, an
    // index outside of the array, an array without index.
    std::optional<Signal> find(std::string_view name) const;

    // The names of the MEASUREMENTs and elements of arrays that are just these bytes, of each place
    // in alphabetical order; what cannot be measured is left out. Looks through the whole file.
    std::map<MemoryPlace, std::vector<std::string>>
    names_at(const std::set<MemoryPlace>& places) const;

    // Up to three names of the file that look like this one, the nearest first.
    std::vector<std::string> near_names(std::string_view name) const;

  private:
    struct Contents;
    std::unique_ptr<Contents> contents_;
};

} // namespace a2l
