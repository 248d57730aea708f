// What is written while a slave sends: the recording, against the plainest way to format it, and
// the dump's share of the receiving thread, against formatting there.

#include "frame_path.h"
#include "host/standin/variable_store.h"
#include "task/output/csv_recorder.h"
#include "task/output/frame_dump.h"
#include "task/output/mf4_recorder.h"

#include <fmt/format.h>

#include <cstdio>
#include <string>
#include <vector>

namespace bench {

namespace {

using halmor_standin::Variable;
using halmor_standin::VariableStore;

bool never() {
    return false;
}

// ---- recording: lines with a value of every variable, every other one whole ----

constexpr int recorded_values = 4'000'000;
constexpr int compared_values = 16'000'000; // so many that start and end of both count for little

double value_of(int line, std::size_t column) {
    return column % 2 == 0 ? line * 3 : line * 0.1;
}

timespec time_of(int line) {
    return {1'700'000'000 + line / 1000, line % 1000 * 1'000'000};
}

int recorded_lines() {
    return recorded_values / static_cast<int>(VariableStore::instance().variables().size());
}

void give_values(task::Recorder& recorder, int values) {
    const auto& variables = VariableStore::instance().variables();
    const int lines = values / static_cast<int>(variables.size());
    for (int line = 0; line < lines; ++line) {
        const timespec time = time_of(line);
        for (const Variable& variable : variables)
            recorder.take(variable, value_of(line, variable.number()), time);
    }
    recorder.close();
}

Prepare recorded_as_csv(int values) {
    return [values] {
        return [values] {
            return seconds_of([values] {
                task::CsvRecorder recorder("/dev/null", task::NoRoom::waits, never);
                give_values(recorder, values);
            });
        };
    };
}

Prepare recorded_as_mf4(int values) {
    return [values] {
        task::RecordedList list{"all", "", {}};
        for (const Variable& variable : VariableStore::instance().variables())
            list.variables.push_back({&variable, ""});
        return [values, list] {
            return seconds_of([values, &list] {
                task::Mf4Recorder recorder("/dev/null", {list}, task::NoRoom::waits, never);
                give_values(recorder, values);
            });
        };
    };
}

double format_values_by_hand() {
    return seconds_of([] {
        std::FILE* file = std::fopen("/dev/null", "w");
        std::vector<std::string> cells(VariableStore::instance().variables().size());
        for (int line = 0; line < recorded_lines(); ++line) {
            for (std::size_t column = 0; column < cells.size(); ++column)
                cells[column] = fmt::format("{}", value_of(line, column));
            const timespec time = time_of(line);
            const std::string text =
                fmt::format("{}.{:09},{}\n", time.tv_sec, time.tv_nsec, fmt::join(cells, ","));
            std::fwrite(text.data(), 1, text.size(), file);
        }
        std::fclose(file);
    });
}

// ---- dump ----

constexpr std::size_t dumped_datagrams = 7000; // less than the dump's ring holds

Prepare dumped(std::size_t packetSize) {
    return [datagram = datagram_for(packetSize)] {
        return [datagram] {
            task::FrameDump dump(task::NoRoom::loses, never);
            const double seconds = seconds_of([&] {
                for (std::size_t i = 0; i < dumped_datagrams; ++i)
                    dump.take(datagram.payload);
            });
            dump.close();
            std::remove(dump.path().c_str());
            return seconds;
        };
    };
}

Prepare dumped_by_hand(std::size_t packetSize) {
    return [datagram = datagram_for(packetSize)] {
        return [datagram] {
            std::FILE* file = std::fopen("/dev/null", "w");
            const double seconds = seconds_of([&] {
                for (std::size_t i = 0; i < dumped_datagrams; ++i) {
                    xcp::MessageWalk messages(datagram.payload);
                    for (xcp::Message message{}; messages.next(message);) {
                        const std::string record = fmt::format("{} \n{:x}\n", message.packet.size(),
                                                               fmt::join(message.packet, ","));
                        std::fwrite(record.data(), 1, record.size(), file);
                    }
                }
            });
            std::fclose(file);
            return seconds;
        };
    };
}

} // namespace

void add_output() {
    const Row recording{"record", "a value", "at most 0.45"};
    add(recording, "library", recorded_values, recorded_as_csv(recorded_values));
    add(recording, "floor", recorded_values, [] { return format_values_by_hand; });
    const Row measurementFile{"record", "a value, .mf4 against .csv", "at most 0.33"};
    add(measurementFile, "library", compared_values, recorded_as_mf4(compared_values));
    add(measurementFile, "floor", compared_values, recorded_as_csv(compared_values));
    const std::size_t size = 32;
    const Row dump{"dump", size_text(size) + ", of the receiver's time", "reported"};
    const std::size_t packets = dumped_datagrams * datagram_for(size).packets;
    add(dump, "library", packets, dumped(size), true);
    add(dump, "floor", packets, dumped_by_hand(size), true);
}

} // namespace bench
