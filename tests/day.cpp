// A day on the bench, in short: a slave of 200,000 values a second, on a lossy way, that loses its
// power again and again, is recorded by the task, half of the time into each kind of file. Whatever
// the slave sent by its addresses is in the file, to the value; what was lost is told; and the
// task's memory and descriptors stay what they are.
// Usage: day SECONDS

#include "mdf_reader.h"
#include "simulated_slave/server.h"
#include "task_program.h"
#include "temporary_file.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <thread>

#include <signal.h>

namespace {

using namespace std::chrono_literals;
using simulated_slave::Fault;
using simulated_slave::SentValue;
using Sums = std::map<std::string, SentValue>;

constexpr int signals = 200; // each a thousand times a second

std::string a2l_text() {
    const char* types[] = {"UBYTE", "SBYTE",   "UWORD",        "SWORD",       "ULONG",
                           "SLONG", "A_INT64", "FLOAT32_IEEE", "FLOAT64_IEEE"};
    std::ostringstream text;
    text << "ASAP2_VERSION 1 71 /begin PROJECT p \"\" /begin MODULE m \"\" /begin IF_DATA XCP\n"
            "/begin PROTOCOL_LAYER 0x104 1000 1000 1000 1000 1000 1000 1000 248 1400\n"
            "BYTE_ORDER_MSB_LAST ADDRESS_GRANULARITY_BYTE /end PROTOCOL_LAYER\n"
            "/begin DAQ DYNAMIC 0 1 0 OPTIMISATION_TYPE_DEFAULT ADDRESS_EXTENSION_FREE\n"
            "IDENTIFICATION_FIELD_TYPE_RELATIVE_BYTE GRANULARITY_ODT_ENTRY_SIZE_DAQ_BYTE 0xF8\n"
            "NO_OVERLOAD_INDICATION /begin TIMESTAMP_SUPPORTED 1 SIZE_DWORD UNIT_1NS\n"
            "TIMESTAMP_FIXED /end TIMESTAMP_SUPPORTED\n"
            "/begin EVENT \"fast\" \"fast\" 0 DAQ 0xFF 1 6 0 /end EVENT /end DAQ /end IF_DATA\n";
    for (int i = 0; i < signals; ++i)
        text << "/begin MEASUREMENT v" << i << " \"\" " << types[i % std::size(types)]
             << " NO_COMPU_METHOD 0 0 -1e9 1e9 ECU_ADDRESS " << 4096 + 8 * i
             << " /end MEASUREMENT\n";
    text << "/end MODULE /end PROJECT\n";
    return text.str();
}

std::string spec_text(const std::string& a2l, const io::UdpEndpoint& slave) {
    const std::filesystem::path path(a2l);
    std::ostringstream text;
    text << "@XCP_SERVER\n"
         << io::to_text(slave) << "\n$\n@A2L_FILE\n"
         << path.filename().string() << "\n$\n@A2L_FILEPATH\n"
         << path.parent_path().string() << "\n$\n@LIST1\nall DAQ fast\n";
    for (int i = 0; i < signals; ++i)
        text << "v" << i << " - -\n";
    text << "$\n";
    return text.str();
}

void add(SentValue& to, double value) {
    ++to.count;
    to.sum += simulated_slave::value_sum(value);
}

Sums sums_of_csv(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    std::vector<std::string> names;
    std::istringstream header(line);
    for (std::string name; std::getline(header, name, ',');)
        names.push_back(name);
    Sums sums;
    while (std::getline(file, line)) {
        const char* at = line.c_str() + line.find(',');
        for (std::size_t i = 1; i < names.size() && *at == ','; ++i) {
            char* end = nullptr;
            const double value = std::strtod(++at, &end);
            if (end != at && *at != 'n') // of a gap
                add(sums[names[i]], value);
            at = end;
        }
    }
    return sums;
}

Sums sums_of_mf4(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const MdfReader reader(std::string{std::istreambuf_iterator<char>(file), {}});
    Sums sums;
    const MdfList& list = reader.lists.at(0);
    for (std::size_t i = 0; i < list.channels.size(); ++i) {
        SentValue& sum = sums[list.channels[i].substr(0, list.channels[i].find(' '))];
        for (const MdfRecord& record : list.records)
            if (record.values[i])
                add(sum, *record.values[i]);
    }
    return sums;
}

// What the task holds of the machine.
struct Holding {
    long kilobytes = 0;
    long descriptors = 0;
};

Holding holding_of(pid_t process) {
    const std::string folder = "/proc/" + std::to_string(process);
    Holding holding;
    std::ifstream status(folder + "/status");
    for (std::string word; status >> word;)
        if (word == "VmRSS:")
            status >> holding.kilobytes;
    std::error_code gone;
    for ([[maybe_unused]] const auto& each :
         std::filesystem::directory_iterator(folder + "/fd", gone))
        ++holding.descriptors;
    return holding;
}

long number_after(const std::string& text, const std::string& words) {
    std::smatch found;
    return std::regex_search(text, found, std::regex(words)) ? std::stol(found[1]) : 0;
}

int failures = 0;

void expect(bool holds, const std::string& what) {
    if (holds)
        return;
    ++failures;
    std::printf("FAILED: %s\n", what.c_str());
}

void run(int seconds, const std::string& ending, Sums (*sums_of)(const std::string&)) {
    const TemporaryFile a2l(a2l_text());
    const TemporaryFile place;
    const std::string record = place.path() + ending;
    simulated_slave::Server slave(a2l::File(a2l.path()), {Fault::lost, Fault::late, Fault::power},
                                  io::parse_endpoint("127.0.0.1:0"));
    slave.start();
    const TemporaryFile spec(spec_text(a2l.path(), slave.endpoint()));
    TaskProgram task({spec.path(), "--seconds", std::to_string(seconds), "--quiet", "--strict",
                      "--record", record});
    std::vector<Holding> held;
    for (int second = 1; second < seconds; ++second) {
        std::this_thread::sleep_for(1s);
        if (const Holding now = holding_of(task.process()); now.kilobytes > 0) // it has not ended
            held.push_back(now);
    }
    const auto end = task.wait();
    slave.stop();

    const auto sent = slave.sent();
    const auto recorded = sums_of(record);
    std::uint64_t values = 0;
    std::size_t same = 0;
    for (const auto& [name, sum] : sent) {
        values += sum.count;
        const auto found = recorded.find(name);
        same += found != recorded.end() && found->second.count == sum.count &&
                        found->second.sum == sum.sum
                    ? 1
                    : 0;
    }
    const long gaps = number_after(end.output, "slave was away (\\d+) times");
    const long missing = number_after(end.output, "\\((\\d+) messages missing");
    const auto lost = static_cast<long>(slave.lost());
    const auto begin = held.begin() + std::min<std::ptrdiff_t>(5, std::ssize(held) - 1);
    const auto [least, most] = std::minmax_element(
        begin, held.end(), [](const auto& a, const auto& b) { return a.kilobytes < b.kilobytes; });
    std::printf("%s: %llu values of %zu variables, %zu of them whole in %llu MB; %ld of %ld lost "
                "messages told, %ld put right, %ld gaps; %ld to %ld MB resident, %ld descriptors\n",
                ending.c_str(), static_cast<unsigned long long>(values), sent.size(), same,
                static_cast<unsigned long long>(std::filesystem::file_size(record) / 1'000'000),
                missing, lost, number_after(end.output, "put right +(\\d+)"), gaps,
                least->kilobytes / 1024, most->kilobytes / 1024, begin->descriptors);
    std::filesystem::remove(record);

    expect(end.status == 2 || end.errors.ends_with("the slave was away\n"),
           "status " + std::to_string(end.status) + ": " + end.errors + end.output);
    expect(sent.size() == signals && same == signals, "a recording that is not whole");
    expect(values > static_cast<std::uint64_t>(signals) * 500 * static_cast<unsigned>(seconds),
           "too little was sent");
    expect(gaps >= (seconds - 1) / 15, "a gap that was not told");
    // Right before a power cut a message can be lost that no later one shows.
    expect(missing <= lost && missing + 2 * gaps >= lost, "losses that were not told");
    expect(most->kilobytes - least->kilobytes < 16'384, "memory that grows");
    expect(std::all_of(begin, held.end(),
                       [&](const auto& h) { return h.descriptors == begin->descriptors; }),
           "descriptors that come and go");
}

} // namespace

int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 60;
    run(seconds / 2, ".csv", sums_of_csv);
    run(seconds - seconds / 2, ".mf4", sums_of_mf4);
    return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
