#include "run.h"

#include "api_xcp_daq.h"
#include "api_xcp_daq_threads.h"
#include "host/standin/variable_store.h"
#include "intake.h"
#include "io/file_error.h"
#include "logs.h"
#include "prepare.h"
#include "registration.h"
#include "task/configuration/configuration_check.h"
#include "task/output/frame_dump.h"
#include "task/output/make_recorder.h"
#include "task/output/progress.h"
#include "task/output/report.h"
#include "task/output/value_observer.h"
#include "termination_signals.h"
#include "worker.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <limits>
#include <memory>
#include <optional>
#include <thread>

namespace task {

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr auto longest_wait = 10ms; // until the end of a source is noticed

void print(const std::string& text) {
    std::cout << text << std::flush;
}

std::uint64_t values_written() {
    std::uint64_t values = 0;
    for (const auto& variable : halmor_standin::VariableStore::instance().variables())
        values += variable.read().updates;
    return values;
}

// From one sample to the next: five cycles of the slowest list.
std::chrono::nanoseconds longest_step(const DatagramSource& source) {
    std::chrono::nanoseconds longest = 1s;
    for (const auto& list : source.lists())
        longest = std::max(longest, 5 * std::chrono::nanoseconds(list.cycle_ns));
    return longest;
}

// Whether it is known when samples are to come.
bool cyclic(const DatagramSource& source) {
    const auto lists = source.lists();
    return !lists.empty() && std::all_of(lists.begin(), lists.end(),
                                         [](const auto& list) { return list.cycle_ns > 0; });
}

// Whatever ends it, the source is stopped before the worker, and after a failure or a second signal
// nothing is waited for.
class Run {
  public:
    Run(const Options& options, api_xcp_daq& daq, TerminationSignals& signals, Prepared prepared)
        : options_(options), daq_(daq), signals_(signals), source_(std::move(prepared.source)) {
        const auto noRoom = source_->can_wait() ? NoRoom::waits : NoRoom::loses;
        const auto urgent = [&signals] { return signals.urgent(); };
        if (options.dump)
            dump_.emplace(noRoom, urgent);
        if (options.record)
            recorder_ = make_recorder(*options.record, prepared.configuration, noRoom, urgent);
        observer_.emplace(recorder_.get(), prepared.ranges);
        if (cyclic(*source_))
            observer_->watch().allow_step(longest_step(*source_).count());
        else if (!source_->lists().empty()) // a sample may come at any time
            observer_->watch().allow_step(std::numeric_limits<std::int64_t>::max());
        intake_.emplace(source_->can_wait(), dump_ ? &*dump_ : nullptr,
                        std::chrono::milliseconds(options.hold), observer_->watch(),
                        source_->sample_ends());
        if (cyclic(*source_))
            intake_->allow_silence(std::max<std::chrono::nanoseconds>(2s, longest_step(*source_)));
    }

    ~Run() { signals_.hurry(); } // whatever failed, the recorder's thread ends

    ExitStatus execute() {
        if (dump_)
            print("dump in " + dump_->path() + "\n");
        receive();
        const RunCounts last = counts();
        const TimingWatch timing = intake_->timing();
        const Findings findings{observer_->watch(), intake_->packets(), observer_->limits(), timing,
                                source_->lists(),   source_->notes(),   source_->doubts()};
        const auto speaksAgainst = doubts(last, findings);
        print(variable_table() + closing_counts(last, findings) + trust_text(speaksAgainst));
        const ExitStatus status = judge(speaksAgainst.empty());
        if (recorder_)
            recorder_->close();
        if (dump_)
            dump_->close();
        source_->check();
        return status;
    }

  private:
    // From its construction on datagrams come, until its destruction.
    class Receiving {
      public:
        explicit Receiving(Run& run) : run_(run) { run_.source_->start(*run_.intake_); }
        ~Receiving() {
            run_.intake_->stop_waiting();
            run_.source_->stop();
        }
        Receiving(const Receiving&) = delete;
        Receiving& operator=(const Receiving&) = delete;

      private:
        Run& run_;
    };

    void receive() {
        const Worker worker(daq_);
        try {
            watch();
            intake_->flush();
            while (XCPFrameBuffer.size() > 0 && !signals_.urgent())
                std::this_thread::sleep_for(1ms);
        } catch (...) {
            signals_.hurry(); // the worker may wait for a file
            throw;
        }
    }

    void watch() {
        const Receiving receiving(*this);
        start_ = Clock::now();
        print("datagrams " + source_->description() + "\n");
        show_progress(
            options_.quiet, [this] { return goes_on(); }, [this] { return counts(); });
        if (const auto last = intake_->counts().lastDaqPacket; last != Clock::time_point{})
            silence_ = std::chrono::duration<double>(Clock::now() - last).count();
    }

    bool goes_on() {
        intake_->advance();
        for (const std::string& line : intake_->notices().lines(elapsed()))
            print(line);
        if (const auto restarts = intake_->restarts(); restarts != seenRestarts_) {
            seenRestarts_ = restarts;
            source_->doubt_session();
        }
        const bool timeIsUp =
            options_.seconds &&
            Clock::now() - start_ >= std::chrono::duration<double>(*options_.seconds);
        return !signals_.wait(longest_wait) && !source_->ended() && !timeIsUp;
    }

    double elapsed() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }

    RunCounts counts() const {
        return {.messages = intake_->counts(),
                .losses = source_->losses(),
                .failures = intake_->failures(),
                .values = values_written(),
                .untimed = observer_->watch().untimed(),
                .waiting = XCPFrameBuffer.size(),
                .misfits = intake_->packets().misfits(),
                .order = intake_->order(),
                .putRight = intake_->put_right(),
                .gaps = observer_->watch().gaps(),
                .notices = intake_->notices().counts(),
                .state = source_->state(),
                .seconds = elapsed(),
                .silence = silence_};
    }

    ExitStatus judge(bool trusted) const {
        const auto missing = source_->missing_values();
        for (const std::string& line : missing)
            std::fprintf(stderr, "xcp_daq_task: %s\n", line.c_str());
        return missing.empty() && (trusted || !options_.strict) ? ExitStatus::success
                                                                : ExitStatus::values_missing;
    }

    const Options& options_;
    api_xcp_daq& daq_;
    TerminationSignals& signals_;
    const std::unique_ptr<DatagramSource> source_;
    std::optional<FrameDump> dump_;
    std::unique_ptr<Recorder> recorder_;
    std::optional<ValueObserver> observer_;
    std::optional<Intake> intake_;
    Clock::time_point start_;
    std::uint64_t seenRestarts_ = 0;
    double silence_ = 0; // seconds, known at the end
};

ExitStatus check(api_xcp_daq& daq, const Options& options) {
    const CheckedConfiguration checked = check_configuration(daq, options);
    api_xcp_daq::dumpInfo();
    print(checked.text);
    for (const std::string& fault : checked.faults)
        std::fprintf(stderr, "xcp_daq_task: %s\n", fault.c_str());
    return checked.faults.empty() ? ExitStatus::success : ExitStatus::would_not_decode;
}

} // namespace

ExitStatus run(const Options& options) {
    TerminationSignals signals; // before anything that starts a thread
    if (!options.check)
        print(register_task(options.name) + "\n");
    try {
        api_xcp_daq daq;
        const Logs logs(options);
        if (options.check)
            return check(daq, options);
        if (options.record)
            check_recordable(*options.record);
        std::optional<ProtocolLog> protocolLog;
        if (options.protocolLog)
            protocolLog.emplace(*options.protocolLog);
        Prepared prepared = prepare(daq, options, signals, protocolLog ? &*protocolLog : nullptr);
        api_xcp_daq::dumpInfo();
        return Run(options, daq, signals, std::move(prepared)).execute();
    } catch (const io::FileError& error) {
        throw Failure(ExitStatus::file, error.what());
    }
}

} // namespace task
