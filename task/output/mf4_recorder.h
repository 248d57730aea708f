#pragma once
// --record into a measurement file (ASAM MDF 4.1), with a group of channels for each DAQ list.
//
// A record begins at each new sample time of its list, or when a value of it comes a second time;
// channels without a value are marked as invalid in it. What came before the first timestamp has
// the time at which the recording began.

#include "file_writer.h"
#include "mdf_file.h"
#include "recorder.h"
#include "task/configuration/recorded_lists.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace task {

class Mf4Recorder final : public Recorder, private FileFormat<RecordedValue> {
  public:
    // Opens the file and starts the thread; values of variables in no list are left out. Once
    // `urgent` gives true nothing waits any more; any thread may ask it. Throws io::FileError, also
    // for a file that is a pipe.
    Mf4Recorder(const std::string& path, const std::vector<RecordedList>& lists, NoRoom noRoom,
                std::function<bool()> urgent);

    void take(const halmor_standin::Variable& variable, double value,
              const timespec& sampleTime) override {
        if (!writer_.take({variable.number(), value, sampleTime}))
            ++lost_;
    }
    void gap(const timespec& from, const timespec& to) override;
    void close() override;

  private:
    using Clock = std::chrono::steady_clock;

    // Where a variable's values go.
    struct Column {
        std::uint32_t group = 0;
        std::uint32_t offset = 0;           // bytes in the record; 0: nowhere
        std::uint32_t invalidationByte = 0; // its offset
        std::uint8_t invalidationBit = 0;   // a mask
        bool isInteger = false;
    };
    // The records of a list that are not in the file yet. The last one may still be filled.
    struct Group {
        mdf::Bytes emptyRecord;       // every channel is invalid
        std::size_t dataBytes;        // of a record; what follows are the invalidation bits
        mdf::Bytes records = {};      // that are not in the file yet
        std::uint8_t* last = nullptr; // of them; null when there is none
        std::int64_t lastTime = 0;    // its time
        bool leftOut = false;         // the last one was left out of a block once, to be filled
        Clock::time_point written = {};

        bool last_is_full() const;
        bool is_due(Clock::time_point now) const;
    };

    static std::vector<Column> columns_of(const std::vector<RecordedList>& lists,
                                          const std::vector<MdfGroup>& layout);
    static std::vector<Group> groups_of(const std::vector<MdfGroup>& layout);
    std::size_t add(std::span<const RecordedValue> items) override;
    void add_value(const RecordedValue& item);
    void add_gap_end(const RecordedValue& item);
    void begin_record(Group& group, std::int64_t time) const;
    std::int64_t since_start(std::int64_t time) const;
    void write(bool last) override;
    void write_records(std::size_t number, bool last);

    const std::string path_;
    const std::int64_t start_; // nanoseconds since 1970
    std::uint64_t lost_ = 0;   // values and gaps without room; the worker's

    // The writer's.
    const std::vector<MdfGroup> layout_;
    const std::vector<Column> columns_; // by variable
    std::vector<Group> groups_;
    MdfFile file_;
    std::int64_t gapFrom_ = 0;
    std::uint64_t unwritten_ = 0; // records that the disk refused; none is tried after the first

    FileWriter<RecordedValue> writer_; // uses all of the above
};

} // namespace task
