#include "run.h"

#include "api_xcp_daq.h"
#include "api_xcp_daq_threads.h"
#include "capture_source.h"
#include "configuration.h"
#include "configuration_check.h"
#include "csv_recorder.h"
#include "file_error.h"
#include "frame_dump.h"
#include "live_view.h"
#include "logs.h"
#include "registration.h"
#include "replay_source.h"
#include "report.h"
#include "sample_time_watch.h"
#include "simulated_source.h"
#include "termination_signals.h"
#include "udp_source.h"
#include "variable_store.h"

#include <chrono>
#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <thread>
#include <vector>

namespace task {

namespace {

using Clock = std::chrono::steady_clock;
using halmor_standin::UdpEndpoint;
using namespace std::chrono_literals;

constexpr auto progress_interval = 1s;
constexpr auto redraw_interval = 200ms;
constexpr auto longest_wait = 20ms; // until the end of a source is noticed

UdpEndpoint listen_endpoint(const Options& options, const UdpEndpoint& server) {
    try {
        return options.listen ? halmor_standin::parse_endpoint(*options.listen)
                              : halmor_standin::resolve_endpoint("127.0.0.1", server.port);
    } catch (const std::invalid_argument& error) {
        throw Failure(ExitStatus::options, std::string("--listen: ") + error.what());
    }
}

std::unique_ptr<DatagramSource> make_source(const Options& options) {
    if (options.source == SourceKind::simulate)
        return std::make_unique<SimulatedSource>(options.faults);
    if (options.source == SourceKind::replay)
        return std::make_unique<ReplaySource>(options.replay);
    const UdpEndpoint server = server_endpoint(options);
    if (options.source == SourceKind::capture)
        return std::make_unique<CaptureSource>(options.capture, server, options.recordedPace);
    return std::make_unique<UdpSource>(listen_endpoint(options, server), server);
}

// A file can wait, a slave cannot.
bool comes_from_file(const Options& options) {
    return options.source == SourceKind::capture || options.source == SourceKind::replay;
}

void print(const std::string& text) {
    std::cout << text << std::flush;
}

std::uint64_t values_written() {
    std::uint64_t values = 0;
    for (const auto& variable : halmor_standin::VariableStore::instance().variables())
        values += variable.read().updates;
    return values;
}

// The worker with decoding on, for as long as the object lives.
class Worker {
  public:
    explicit Worker(api_xcp_daq& daq) : daq_(daq) {
        daq_.startWorkerThreads();
        api_xcp_daq::enableDAQProcessing();
    }
    // Decoding goes off after the worker has ended: the other way round its last frame would be
    // discarded now and then.
    ~Worker() {
        daq_.stopWorkerThreads();
        api_xcp_daq::disableDAQProcessing();
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

  private:
    api_xcp_daq& daq_;
};

// Sees every value on the worker's thread, for as long as the object lives.
class ValueObserver : public halmor_standin::WriteObserver {
  public:
    explicit ValueObserver(const Options& options) {
        if (options.record)
            recorder_.emplace(*options.record, comes_from_file(options)
                                                   ? CsvRecorder::NoRoom::waits
                                                   : CsvRecorder::NoRoom::loses);
        halmor_standin::VariableStore::observe(this);
    }
    ~ValueObserver() override { halmor_standin::VariableStore::observe(nullptr); }

    void written(const halmor_standin::Variable& variable, double value,
                 const timespec& sampleTime) override {
        watch_.take(variable, sampleTime);
        if (recorder_)
            recorder_->take(variable, value, sampleTime);
    }

    const SampleTimeWatch& watch() const { return watch_; }
    void close() {
        if (recorder_)
            recorder_->close();
    }

  private:
    SampleTimeWatch watch_;
    std::optional<CsvRecorder> recorder_;
};

class Run {
  public:
    Run(const Options& options, api_xcp_daq& daq, TerminationSignals& signals)
        : options_(options), daq_(daq), signals_(signals), observer_(options) {}

    ExitStatus execute() {
        source_ = make_source(options_);
        if (options_.dump) {
            dump_.emplace();
            print("dump in " + dump_->path() + "\n");
        }
        {
            const Worker worker(daq_);
            start_ = Clock::now();
            source_->start([this](const std::uint8_t* data, std::uint64_t length) {
                take_datagram({data, length});
            });
            print("datagrams " + source_->description() + "\n");
            watch();
            source_->stop();
            drain();
        }
        const RunCounts last = counts();
        print(variable_table() + closing_counts(last) + trust_text(last, observer_.watch()));
        const ExitStatus status = judge(last);
        observer_.close();
        if (dump_)
            dump_->close();
        source_->check();
        return status;
    }

  private:
    // On the source's thread.
    void take_datagram(std::span<const std::uint8_t> payload) {
        if (comes_from_file(options_))
            wait_for_worker();
        counter_.take(payload.data(), payload.size());
        if (dump_)
            dump_->take(payload);
        api_xcp_daq_push_frame(payload.data(), payload.size());
    }

    // The frame queue is unbounded, and a file may be larger than the memory.
    static void wait_for_worker() {
        constexpr std::size_t frames = 10'000;
        while (XCPFrameBuffer.size() > frames)
            std::this_thread::sleep_for(1ms);
    }

    RunCounts counts() const {
        const std::chrono::duration<double> elapsed = Clock::now() - start_;
        return {counter_.counts(), source_->losses(), values_written(), XCPFrameBuffer.size(),
                elapsed.count()};
    }

    bool time_is_up() const {
        return options_.seconds &&
               Clock::now() - start_ >= std::chrono::duration<double>(*options_.seconds);
    }

    bool goes_on() { return !signals_.wait(longest_wait) && !source_->ended() && !time_is_up(); }

    void watch() {
        if (options_.quiet)
            while (goes_on()) {
            }
        else if (LiveView::possible())
            watch_table();
        else
            watch_lines();
    }

    void watch_table() {
        LiveView view;
        auto next = start_;
        while (goes_on())
            if (Clock::now() >= next) {
                view.draw(counts());
                next += redraw_interval;
            }
        view.draw(counts());
    }

    void watch_lines() {
        RunCounts before;
        auto next = start_ + progress_interval;
        while (goes_on())
            if (Clock::now() >= next) {
                const RunCounts now = counts();
                print(progress_line(now, before));
                before = now;
                next += progress_interval;
            }
    }

    // Until the worker has taken every frame, or a second signal says not to wait for it.
    void drain() {
        while (XCPFrameBuffer.size() > 0 && !signals_.wait(1ms)) {
        }
    }

    ExitStatus judge(const RunCounts& last) const {
        const auto missing = source_->missing_values();
        for (const std::string& line : missing)
            std::fprintf(stderr, "xcp_daq_task: %s\n", line.c_str());
        const bool lost = options_.strict && anything_lost(last);
        return missing.empty() && !lost ? ExitStatus::success : ExitStatus::values_missing;
    }

    const Options& options_;
    api_xcp_daq& daq_;
    TerminationSignals& signals_;
    ValueObserver observer_;
    MessageCounter counter_;
    std::optional<FrameDump> dump_;
    std::unique_ptr<DatagramSource> source_; // last: its thread uses the others
    Clock::time_point start_;
};

ExitStatus check(const std::vector<TableLine>& table, const Options& options) {
    print(configuration_text());
    const auto faults = find_faults(table, options);
    for (const std::string& fault : faults)
        std::fprintf(stderr, "xcp_daq_task: %s\n", fault.c_str());
    return faults.empty() ? ExitStatus::success : ExitStatus::would_not_decode;
}

} // namespace

ExitStatus run(const Options& options) {
    TerminationSignals signals; // before anything that starts a thread
    if (!options.check)
        print(register_task(options) + "\n");
    try {
        api_xcp_daq daq;
        const Logs logs(options);
        const std::vector<TableLine> table = configure(daq, options);
        api_xcp_daq::dumpInfo();
        return options.check ? check(table, options) : Run(options, daq, signals).execute();
    } catch (const halmor_standin::FileError& error) {
        throw Failure(ExitStatus::file, error.what());
    }
}

} // namespace task
