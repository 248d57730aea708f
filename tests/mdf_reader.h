#pragma once
// Reads a measurement file (ASAM MDF 4.1) by its links alone, and throws std::runtime_error at
// whatever does not hold of it.

#include <cstdint>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

struct MdfRecord {
    double seconds; // from the start
    std::vector<std::optional<double>> values;
};

struct MdfList {
    std::string name;                  // with "/" and the comment
    std::vector<std::string> channels; // "name integer unit", "name real unit"
    std::vector<MdfRecord> records;
};

class MdfReader {
  public:
    explicit MdfReader(const std::string& bytes) : bytes_(bytes) {
        finalised = bytes_.starts_with("MDF     4.10    ");
        hold(finalised || bytes_.starts_with("UnFinMF 4.10    "), "ID");
        hold(at<std::uint16_t>(60) == (finalised ? 0 : 1), "ID flags");
        const Block header = block(64, "##HD", 6);
        start = at<std::int64_t>(header.data);
        hold(text(block(header.links[1], "##FH", 2).links[1], "##MD").ends_with("</FHcomment>"),
             "FH");
        for (std::uint64_t place = header.links[0]; place != 0;) {
            const Block group = block(place, "##DG", 4);
            lists.push_back(list(block(group.links[1], "##CG", 6), records_of(group.links[2])));
            place = group.links[0];
        }
        for (std::uint64_t place = header.links[4]; place != 0;)
            gaps.push_back({event(place, 1), event(place, 2)}); // in this order
    }

    bool finalised = false;
    std::int64_t start = 0; // nanoseconds since 1970
    std::vector<MdfList> lists;
    std::vector<std::pair<std::int64_t, std::int64_t>> gaps; // nanoseconds from the start

  private:
    struct Block {
        std::vector<std::uint64_t> links;
        std::uint64_t data;
        std::uint64_t size; // of the data
    };

    static void hold(bool condition, const std::string& what) {
        if (!condition)
            throw std::runtime_error(what);
    }

    template <class Number>
    Number at(std::uint64_t place) const {
        Number number;
        hold(place + sizeof number <= bytes_.size(), "beyond the end");
        std::memcpy(&number, &bytes_[place], sizeof number);
        return number;
    }

    Block block(std::uint64_t place, const std::string& id, std::size_t links) const {
        hold(place % 8 == 0 && place < bytes_.size() && bytes_.compare(place, 4, id) == 0, id);
        const auto length = at<std::uint64_t>(place + 8);
        hold(length <= bytes_.size() - place, id + " is too long");
        hold(at<std::uint64_t>(place + 16) == links, "links of " + id);
        Block found{{}, place + 24 + 8 * links, length - 24 - 8 * links};
        for (std::size_t i = 0; i < links; ++i)
            found.links.push_back(at<std::uint64_t>(place + 24 + 8 * i));
        return found;
    }

    std::string text(std::uint64_t place, const std::string& id = "##TX") const {
        if (place == 0)
            return "";
        const Block found = block(place, id, 0);
        hold(bytes_[found.data + found.size - 1] == '\0', "text without an end");
        return bytes_.c_str() + found.data;
    }

    std::int64_t event(std::uint64_t& place, std::uint32_t range) const {
        const Block event = block(place, "##EV", 5);
        hold(at<std::uint32_t>(event.data) == 0x01'00'01'02U + range * 0x1'0000U &&
                 at<double>(event.data + 24) == 1e-9 && (event.links[2] != 0) == (range == 2),
             "EV");
        place = event.links[0];
        return at<std::int64_t>(event.data + 16);
    }

    MdfList list(const Block& group, const std::string& records) const {
        MdfList found{text(group.links[2]) + "/" + text(group.links[5]), {}, {}};
        std::vector<std::uint64_t> channels;
        for (std::uint64_t place = group.links[1]; place != 0;) {
            const Block channel = block(place, "##CN", 8);
            const bool isTime = at<std::uint16_t>(channel.data) == 0x01'02;
            hold(isTime == channels.empty(), "a master that is not the first, or none");
            hold(at<std::uint32_t>(channel.data + 12) == (isTime ? 0 : 2), "CN flags");
            channels.push_back(channel.data);
            if (!isTime)
                found.channels.push_back(text(channel.links[2]) +
                                         (is_real(channel.data) ? " real " : " integer ") +
                                         text(channel.links[6]));
            place = channel.links[0];
        }
        const std::size_t size = at<std::uint32_t>(group.data + 24);
        const std::size_t recordSize = size + at<std::uint32_t>(group.data + 28);
        hold(records.size() % recordSize == 0, "a record in part");
        hold(!finalised || at<std::uint64_t>(group.data + 8) * recordSize == records.size(),
             "count");
        for (std::size_t i = 0; i < records.size(); i += recordSize)
            found.records.push_back(record(&records[i], size, channels));
        return found;
    }

    bool is_real(std::uint64_t channel) const {
        const bool real = at<std::uint8_t>(channel + 2) == 4;
        hold(real || at<std::uint8_t>(channel + 2) == 2, "CN type");
        hold(at<std::uint32_t>(channel + 8) == (real ? 64 : 32), "CN bits");
        return real;
    }

    MdfRecord record(const char* bytes, std::size_t size,
                     const std::vector<std::uint64_t>& channels) const {
        MdfRecord record{};
        for (const std::uint64_t channel : channels) {
            double value = 0;
            std::int32_t integer = 0;
            const auto* number = bytes + at<std::uint32_t>(channel + 4);
            if (is_real(channel))
                std::memcpy(&value, number, sizeof value);
            else
                value = (std::memcpy(&integer, number, sizeof integer), integer);
            const auto bit = at<std::uint32_t>(channel + 16);
            if (channel == channels[0])
                record.seconds = value;
            else if ((bytes[size + bit / 8] >> bit % 8 & 1) != 0)
                record.values.emplace_back();
            else
                record.values.emplace_back(value);
        }
        return record;
    }

    std::string records_of(std::uint64_t place) const {
        std::string records;
        while (place != 0) {
            const auto links = at<std::uint64_t>(place + 16);
            const Block list = block(place, "##DL", links);
            hold(at<std::uint32_t>(list.data + 4) == links - 1 && list.size == 8 * links, "DL");
            for (std::size_t i = 1; i < links; ++i) {
                const Block data = block(list.links[i], "##DT", 0);
                hold(at<std::uint64_t>(list.data + 8 * i) == records.size(), "DL offset");
                records.append(bytes_, data.data, data.size);
            }
            place = list.links[0];
        }
        return records;
    }

    const std::string bytes_;
};
