#include "signal_reader.h"

#include "conversion.h"
#include "measurement.h"
#include "token_values.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>

namespace a2l {

namespace {

struct TypeWord {
    const char* word;
    std::size_t size; // bytes
};

// In the order of DataType.
constexpr TypeWord types[] = {{"UBYTE", 1},        {"SBYTE", 1},       {"UWORD", 2},
                              {"SWORD", 2},        {"ULONG", 4},       {"SLONG", 4},
                              {"A_UINT64", 8},     {"A_INT64", 8},     {"FLOAT16_IEEE", 2},
                              {"FLOAT32_IEEE", 4}, {"FLOAT64_IEEE", 8}};

constexpr std::pair<std::string_view, ByteOrder> byte_orders[] = {
    {"MSB_LAST", ByteOrder::little},
    {"MSB_FIRST", ByteOrder::big},
    {"LITTLE_ENDIAN", ByteOrder::little},
    {"BIG_ENDIAN", ByteOrder::big}};

std::string in_brackets(const std::vector<std::uint32_t>& numbers) {
    std::string text;
    for (const std::uint32_t number : numbers)
        text.append(1, '[').append(std::to_string(number)).append(1, ']');
    return text;
}

class SignalReader {
  public:
    SignalReader(const SourceFiles& files, const BlockIndex& index, const ModuleDefaults& defaults,
                 const Block& block)
        : files_(files), index_(index), defaults_(defaults), block_(block),
          measurement_(read_measurement(files, block)) {}

    Signal read(const std::vector<std::uint32_t>& indices) {
        check_indices(indices);
        read_type();
        read_byte_order();
        read_conversion_and_limits();
        read_address(indices);
        signal_.unit =
            measurement_.unit.text.empty() ? signal_.unit : to_text(measurement_.unit.text);
        signal_.displayIdentifier = measurement_.displayIdentifier.text;
        signal_.event = measurement_.event;
        if (!measurement_.bitMask.text.empty())
            signal_.bitMask = integer(measurement_.bitMask, ~std::uint64_t{0});
        return std::move(signal_);
    }

  private:
    // At a token of the measurement, or at its name for one that is not there.
    io::FileError fault(const Token& where, const std::string& cause) const {
        return files_.fault(where.text.empty() ? block_.token() : where,
                            to_shown(block_.name) + ": " + cause);
    }

    std::uint64_t integer(const Token& token, std::uint64_t most) const {
        const auto value = to_integer(token.text);
        if (!value || *value > most)
            throw fault(token, "expected a number from 0 to " + std::to_string(most) + ", found " +
                                   to_shown(token.text));
        return *value;
    }

    double real(const Token& token) const {
        const auto value = to_real(token.text);
        if (!value)
            throw fault(token, "expected a number, found " + to_shown(token.text));
        return *value;
    }

    void check_indices(const std::vector<std::uint32_t>& indices) const {
        const auto& dimensions = measurement_.dimensions;
        if (dimensions.empty() && !indices.empty())
            throw fault({}, "it is no array");
        if (indices.size() != dimensions.size())
            throw fault({}, "an array of " + in_brackets(dimensions) +
                                ": one element can be measured, with an index for each dimension");
        for (std::size_t i = 0; i < indices.size(); ++i)
            if (indices[i] >= dimensions[i])
                throw fault({}, in_brackets(indices) + " is outside of " + in_brackets(dimensions));
    }

    void read_type() {
        const auto type = type_named(measurement_.type.text);
        if (!type)
            throw fault(measurement_.type, "unknown data type " + to_shown(measurement_.type.text));
        signal_.type = *type;
    }

    void read_byte_order() {
        const Token& token =
            measurement_.byteOrder.text.empty() ? defaults_.byteOrder : measurement_.byteOrder;
        if (token.text.empty())
            return;
        for (const auto& [word, order] : byte_orders)
            if (token.text == word) {
                signal_.byteOrder = order;
                return;
            }
        throw fault(token, "unknown byte order " + to_shown(token.text));
    }

    void read_conversion_and_limits() {
        signal_.lower = real(measurement_.lower);
        signal_.upper = real(measurement_.upper);
        const std::string_view name = measurement_.conversion.text;
        if (name == "NO_COMPU_METHOD")
            return;
        const Block* block = index_.conversions.find(name);
        if (block == nullptr)
            throw fault(measurement_.conversion, "there is no COMPU_METHOD " + to_shown(name));
        const Conversion conversion = read_conversion(files_, *block, to_shown(block_.name));
        signal_.factor = conversion.factor;
        signal_.offset = conversion.offset;
        signal_.unit = conversion.unit;
    }

    void read_address(const std::vector<std::uint32_t>& indices) {
        if (measurement_.isVirtual)
            throw fault({}, "it is virtual: computed from others, not in the slave's memory");
        if (measurement_.address.text.empty())
            throw fault({}, "no ECU_ADDRESS");
        const std::string_view addressType = measurement_.addressType.text;
        if (!addressType.empty() && addressType != "DIRECT")
            throw fault(measurement_.addressType,
                        "it lies behind a pointer, ADDRESS_TYPE " + to_shown(addressType));
        constexpr std::uint64_t most = std::numeric_limits<std::uint32_t>::max();
        const std::uint64_t bytes = element_of(indices) * size_of(signal_.type);
        if (bytes % defaults_.addressGranularity != 0)
            throw fault({}, in_brackets(indices) + " begins between two addresses");
        const std::uint64_t address =
            integer(measurement_.address, most) + bytes / defaults_.addressGranularity;
        if (address > most)
            throw fault({}, in_brackets(indices) + " lies beyond the largest address");
        signal_.address = static_cast<std::uint32_t>(address);
        if (!measurement_.addressExtension.text.empty())
            signal_.addressExtension =
                static_cast<std::uint8_t>(integer(measurement_.addressExtension, 0xFF));
    }

    // Its number in memory.
    std::uint64_t element_of(const std::vector<std::uint32_t>& indices) const {
        const bool byColumn = measurement_.layout.text == "COLUMN_DIR";
        std::uint64_t element = 0;
        for (std::size_t i = 0; i < indices.size(); ++i) {
            const std::size_t place = byColumn ? indices.size() - 1 - i : i;
            element = element * measurement_.dimensions[place] + indices[place];
        }
        return element;
    }

    const SourceFiles& files_;
    const BlockIndex& index_;
    const ModuleDefaults& defaults_;
    const Block& block_;
    const Measurement measurement_;
    Signal signal_;
};

} // namespace

const char* name_of(DataType type) {
    return types[static_cast<std::size_t>(type)].word;
}

std::size_t size_of(DataType type) {
    return types[static_cast<std::size_t>(type)].size;
}

std::optional<DataType> type_named(std::string_view word) {
    const auto* found = std::find_if(std::begin(types), std::end(types),
                                     [&](const TypeWord& type) { return type.word == word; });
    if (found == std::end(types))
        return {};
    return static_cast<DataType>(found - std::begin(types));
}

Signal read_signal(const SourceFiles& files, const BlockIndex& index,
                   const ModuleDefaults& defaults, const Block& block,
                   const std::vector<std::uint32_t>& indices) {
    return SignalReader(files, index, defaults, block).read(indices);
}

} // namespace a2l
