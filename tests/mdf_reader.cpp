#include "mdf_reader.h"

#include <cstring>
#include <stdexcept>

namespace {

void hold(bool condition, const std::string& what) {
    if (!condition)
        throw std::runtime_error(what);
}

class Reader {
  public:
    explicit Reader(const std::string& bytes) : bytes_(bytes) {}

    MdfContents read() {
        const auto kind = bytes_.substr(0, 8);
        const auto flags = at<std::uint16_t>(0, 60);
        MdfContents contents{kind == "MDF     ", 0, {}, {}};
        counted_ = contents.finalised;
        hold(contents.finalised ? flags == 0 : kind == "UnFinMF " && flags == 1, "ID");
        hold(bytes_.substr(8, 8) == "4.10    " && at<std::uint16_t>(0, 28) == 410, "version");
        const Block header = block(64, "##HD", 6);
        contents.start = at<std::int64_t>(header.data);
        hold(at<std::uint8_t>(header.data, 12) == 2, "time flags");
        const Block history = block(header.links[1], "##FH", 2);
        hold(text(history.links[1], "##MD").find("<tool_id>xcp_daq_task<") != std::string::npos,
             "FH");
        for (std::uint64_t place = header.links[0]; place != 0;) {
            const Block group = block(place, "##DG", 4);
            contents.lists.push_back(list(group.links[1], group.links[2]));
            place = group.links[0];
        }
        for (std::uint64_t place = header.links[4]; place != 0;)
            contents.gaps.push_back(gap(place));
        return contents;
    }

  private:
    struct Block {
        std::vector<std::uint64_t> links;
        std::uint64_t data;
        std::uint64_t size; // of the data
    };

    template <class Number>
    Number at(std::uint64_t place, std::uint64_t offset = 0) const {
        Number number;
        hold(place + offset + sizeof number <= bytes_.size(), "beyond the end");
        std::memcpy(&number, &bytes_[place + offset], sizeof number);
        return number;
    }

    Block block(std::uint64_t place, const std::string& id, std::size_t links) const {
        hold(place % 8 == 0 && bytes_.compare(place, 4, id) == 0, "no " + id);
        const auto length = at<std::uint64_t>(place, 8);
        hold(length <= bytes_.size() - place, id + " is too long");
        hold(at<std::uint64_t>(place, 16) == links, "links of " + id);
        Block found{{}, place + 24 + 8 * links, length - 24 - 8 * links};
        for (std::size_t i = 0; i < links; ++i)
            found.links.push_back(at<std::uint64_t>(place, 24 + 8 * i));
        return found;
    }

    std::string text(std::uint64_t place, const std::string& id = "##TX") const {
        if (place == 0)
            return "";
        const Block found = block(place, id, 0);
        hold(bytes_[found.data + found.size - 1] == '\0', "text without an end");
        return bytes_.c_str() + found.data;
    }

    MdfGap gap(std::uint64_t& place) const {
        double ends[2];
        for (const std::uint32_t end : {0U, 1U}) {
            const Block event = block(place, "##EV", 5);
            hold(at<std::uint32_t>(event.data) == 0x01'00'01'02U + (end + 1) * 0x1'0000U, "EV");
            hold((event.links[2] != 0) == (end == 1), "EV range");
            ends[end] =
                static_cast<double>(at<std::int64_t>(event.data, 16)) * at<double>(event.data, 24);
            place = event.links[0];
        }
        return {ends[0], ends[1]};
    }

    struct Channel {
        std::uint8_t kind, sync, type;
        std::uint32_t offset, bits, flags, invalid;
    };

    MdfList list(std::uint64_t place, std::uint64_t data) const {
        const Block group = block(place, "##CG", 6);
        MdfList found{text(group.links[2]) + "/" + text(group.links[5]), {}, {}};
        std::vector<Channel> channels;
        for (std::uint64_t next = group.links[1]; next != 0;) {
            const Block block_ = block(next, "##CN", 8);
            const auto d = block_.data;
            channels.push_back({at<std::uint8_t>(d), at<std::uint8_t>(d, 1), at<std::uint8_t>(d, 2),
                                at<std::uint32_t>(d, 4), at<std::uint32_t>(d, 8),
                                at<std::uint32_t>(d, 12), at<std::uint32_t>(d, 16)});
            const bool integer = channels.back().type == 2 && channels.back().bits == 32;
            hold(integer || (channels.back().type == 4 && channels.back().bits == 64), "CN type");
            found.channels.push_back(text(block_.links[2]) + (integer ? " integer " : " real ") +
                                     text(block_.links[6]));
            next = block_.links[0];
        }
        hold(channels.at(0).kind == 2 && channels[0].sync == 1 &&
                 found.channels[0] == "time real s",
             "no master");
        found.channels.erase(found.channels.begin());
        const auto size = at<std::uint32_t>(group.data, 24);
        const std::string records = records_of(data);
        const std::uint64_t recordSize = size + at<std::uint32_t>(group.data, 28);
        hold(records.size() % recordSize == 0, "a record in part");
        hold(!counted_ || at<std::uint64_t>(group.data, 8) * recordSize == records.size(),
             "cycles");
        for (std::size_t at = 0; at < records.size(); at += recordSize)
            found.records.push_back(record(&records[at], size, channels));
        return found;
    }

    static MdfRecord record(const char* bytes, std::uint32_t size,
                            const std::vector<Channel>& channels) {
        MdfRecord record{};
        for (const Channel& each : channels) {
            double value = 0;
            std::int32_t integer = 0;
            std::memcpy(&value, bytes + each.offset, each.bits == 64 ? 8 : 0);
            std::memcpy(&integer, bytes + each.offset, each.bits == 32 ? 4 : 0);
            const bool invalid = bytes[size + each.invalid / 8] >> each.invalid % 8 & 1;
            if (each.kind == 2)
                record.seconds = value;
            else if (each.flags == 2 && invalid)
                record.values.emplace_back();
            else
                record.values.emplace_back(each.bits == 32 ? integer : value);
        }
        return record;
    }

    std::string records_of(std::uint64_t place) const {
        std::string records;
        while (place != 0) {
            const auto links = at<std::uint64_t>(place, 16);
            const Block list = block(place, "##DL", links);
            hold(at<std::uint32_t>(list.data, 4) == links - 1 && list.size == 8 * links, "DL");
            for (std::size_t i = 1; i < links; ++i) {
                const Block data = block(list.links[i], "##DT", 0);
                hold(at<std::uint64_t>(list.data, 8 * i) == records.size(), "DL offset");
                records.append(bytes_, data.data, data.size);
            }
            place = list.links[0];
        }
        return records;
    }

    const std::string& bytes_;
    bool counted_ = false; // the numbers of records hold
};

} // namespace

MdfContents read_mdf(const std::string& bytes) {
    return Reader(bytes).read();
}
