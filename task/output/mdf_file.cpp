#include "mdf_file.h"

#include "io/file_error.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace task {

using io::FileError;
using mdf::Bytes;
using mdf::Place;

namespace {

// A list is written anew with each block that it gets. It lies within one page of memory, which a
// process that is killed has written as a whole or not at all.
constexpr std::size_t page_size = 4096;
constexpr std::size_t blocks_per_list = 253;
static_assert(mdf::data_list_size(blocks_per_list) <= page_size);

constexpr std::string_view writer_xml =
    "<FHcomment xmlns=\"http://www.asam.net/mdf/v4\"><TX>Recording of XCP data acquisition</TX>"
    "<tool_id>xcp_daq_task</tool_id><tool_vendor>none</tool_vendor>"
    "<tool_version>" XCP_DAQ_VERSION "</tool_version></FHcomment>";

Place aligned(Place place, std::size_t size) {
    return (place + size - 1) / size * size;
}

// Opened for reading as well, since opening a pipe for writing alone waits for its reader.
io::FileDescriptor open_seekable(const std::string& path) {
    io::FileDescriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (file.get() < 0)
        throw FileError(path, std::strerror(errno));
    if (lseek(file.get(), 0, SEEK_CUR) < 0)
        throw FileError(
            path, "no MF4 can be recorded into a pipe, since its links are written later; CSV can");
    return file;
}

mdf::WallClock wall_clock(std::int64_t nanoseconds) {
    const std::time_t time = nanoseconds / 1'000'000'000;
    tm local{};
    tzset(); // sets `timezone`, which has no daylight saving
    localtime_r(&time, &local);
    const long daylight = local.tm_isdst > 0 ? local.tm_gmtoff + timezone : 0;
    return {static_cast<std::uint64_t>(nanoseconds),
            static_cast<std::int16_t>((local.tm_gmtoff - daylight) / 60),
            static_cast<std::int16_t>(daylight / 60)};
}

Place add(Bytes& file, const Bytes& block) {
    file.resize(aligned(file.size(), mdf::alignment));
    const Place place = file.size();
    file.insert(file.end(), block.begin(), block.end());
    return place;
}

Place add_text(Bytes& file, const std::string& text) {
    return text.empty() ? 0 : add(file, mdf::text_block(text));
}

} // namespace

MdfFile::MdfFile(const std::string& path, std::int64_t start, const std::vector<MdfGroup>& groups)
    : file_(open_seekable(path)) {
    if (!append(first_blocks(start, groups)))
        throw FileError(path, error_);
}

// Each block comes after those that it links to, but for the first two, whose place is fixed.
Bytes MdfFile::first_blocks(std::int64_t start, const std::vector<MdfGroup>& groups) {
    const mdf::WallClock time = wall_clock(start);
    Bytes file(mdf::Header::place + block(mdf::Header{}).size());
    const Place history =
        add(file, block(mdf::FileHistory{add(file, mdf::xml_block(writer_xml)), time}));
    Place next = 0;
    for (auto group = groups.rbegin(); group != groups.rend(); ++group)
        next = add_group(file, *group, next);
    std::reverse(chains_.begin(), chains_.end());
    const Bytes identification = mdf::identification(false);
    const Bytes header = block(mdf::Header{next, history, time});
    std::copy(identification.begin(), identification.end(), file.begin());
    std::copy(header.begin(), header.end(), file.begin() + mdf::Header::place);
    return file;
}

Place MdfFile::add_group(Bytes& file, const MdfGroup& group, Place next) {
    Place channel = 0;
    for (std::size_t i = group.channels.size(); i-- > 0;) {
        const MdfChannel& each = group.channels[i];
        const Place name = add_text(file, each.name);
        const Place unit = add_text(file, each.unit);
        channel = add(file, block(mdf::Channel{channel, name, unit, each.type, each.offset,
                                               each.bytes, static_cast<std::uint32_t>(i)}));
    }
    const Place timeName = add_text(file, "time");
    const Place seconds = add_text(file, "s");
    channel =
        add(file, block(mdf::Channel{
                      channel, timeName, seconds, mdf::NumberType::real, 0, sizeof(double), {}}));
    const Place name = add_text(file, group.name);
    const Place comment = add_text(file, group.comment);
    const Place channelGroup = add(
        file,
        block(mdf::ChannelGroup{channel, name, comment, group.dataBytes, group.invalidationBytes}));
    const Place dataGroup = add(file, block(mdf::DataGroup{next, channelGroup}));
    chains_.push_back({channelGroup, dataGroup + mdf::DataGroup::dataAt, group.record_size()});
    return dataGroup;
}

bool MdfFile::add_records(std::size_t group, std::span<const std::uint8_t> records) {
    Chain& chain = chains_[group];
    const Place block = end_;
    if (!append(mdf::data_header(records.size())) || !append(records) || !link(chain, block))
        return false;
    chain.bytes += records.size();
    return count_records(chain);
}

bool MdfFile::link(Chain& chain, Place newBlock) {
    const bool full = chain.list == 0 || chain.blocks.size() == blocks_per_list;
    if (full) {
        chain.blocks.clear();
        chain.offsets.clear();
    }
    chain.blocks.push_back(newBlock);
    chain.offsets.push_back(chain.bytes);
    return full ? begin_list(chain)
                : write(chain.list, block(mdf::DataList{chain.blocks, chain.offsets}));
}

// The rest of its page is the list's from the beginning: a full disk does not refuse it later.
bool MdfFile::begin_list(Chain& chain) {
    Bytes page = mdf::block(mdf::DataList{chain.blocks, chain.offsets});
    page.resize(page_size);
    end_ = aligned(end_, page_size);
    chain.list = end_;
    if (!append(page) || !write(chain.nextListLink, chain.list))
        return false;
    chain.nextListLink = chain.list + mdf::link_at(0);
    return true;
}

bool MdfFile::count_records(const Chain& chain) {
    return write(chain.channelGroup + mdf::ChannelGroup::recordCountAt,
                 chain.bytes / chain.recordSize);
}

bool MdfFile::add_gap(std::int64_t begin, std::int64_t end) {
    if (gapName_ == 0) {
        gapName_ = end_;
        if (!append(mdf::text_block("gap of the acquisition")))
            return false;
    }
    const auto [bytes, last] = mdf::blocks(mdf::Gap{end_, gapName_, begin, end});
    const Place first = end_;
    if (!append(bytes) || !write(nextGapLink_, first))
        return false;
    nextGapLink_ = last + mdf::link_at(0);
    return true;
}

bool MdfFile::finalise() {
    return std::all_of(chains_.begin(), chains_.end(),
                       [this](const Chain& chain) { return count_records(chain); }) &&
           write(0, mdf::identification(true));
}

// What the disk took only a part of is not linked.
bool MdfFile::append(std::span<const std::uint8_t> bytes) {
    if (!write(end_, bytes))
        return false;
    end_ = aligned(end_ + bytes.size(), mdf::alignment);
    return true;
}

bool MdfFile::write(Place place, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t written =
            pwrite(file_.get(), bytes.data(), bytes.size(), static_cast<off_t>(place));
        if (written >= 0) {
            place += static_cast<Place>(written);
            bytes = bytes.subspan(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            error_ = std::strerror(errno);
            return false;
        }
    }
    return true;
}

bool MdfFile::write(Place place, std::uint64_t number) {
    std::array<std::uint8_t, sizeof number> bytes{};
    std::memcpy(bytes.data(), &number, sizeof number);
    return write(place, bytes);
}

} // namespace task
