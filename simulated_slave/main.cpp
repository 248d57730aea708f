// xcp_simulated_slave: an XCP slave out of an A2L file.

#include "io/file_error.h"
#include "options.h"
#include "server.h"

#include <signal.h>

#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

namespace {

using namespace simulated_slave;

a2l::File read_file(const std::string& path) {
    try {
        return a2l::File(path);
    } catch (const io::FileError& error) {
        throw Failure(ExitStatus::file, error.what());
    }
}

io::UdpEndpoint listening_endpoint(const Options& options, const a2l::Xcp& xcp) {
    constexpr std::uint16_t default_port = 5555;
    try {
        if (options.listen)
            return io::parse_endpoint(*options.listen);
    } catch (const std::invalid_argument& error) {
        throw Failure(ExitStatus::options, std::string("--listen: ") + error.what());
    }
    const std::string& host = xcp.address.empty() ? xcp.hostName : xcp.address;
    try {
        return io::resolve_endpoint(host.empty() ? "127.0.0.1" : host,
                                    xcp.port.value_or(default_port));
    } catch (const std::invalid_argument& error) {
        throw Failure(ExitStatus::file, options.a2lFile + ": " + error.what());
    }
}

// SIGINT and SIGTERM wait until somebody asks for them, in every thread that is made from here on.
sigset_t held_back_signals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

// For a signal, for the end of the given time, or until the server has failed.
void wait_for_end(const sigset_t& signals, const Server& server, const Options& options) {
    using Clock = std::chrono::steady_clock;
    constexpr timespec moment{0, 50'000'000};
    const auto begin = Clock::now();
    const auto over = [&] {
        return options.seconds &&
               std::chrono::duration<double>(Clock::now() - begin).count() >= *options.seconds;
    };
    while (!server.failed() && !over() && sigtimedwait(&signals, nullptr, &moment) < 0) {
    }
}

void say(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

void say_what_was_sent(const Server& server) {
    std::uint64_t values = 0;
    const auto sent = server.sent();
    for (const auto& [name, value] : sent)
        values += value.count;
    say("sent " + std::to_string(values) + " values of " + std::to_string(sent.size()) +
        " signals, ignored " + std::to_string(server.violations()) + " messages");
}

void serve(const Options& options) {
    const sigset_t signals = held_back_signals();
    const a2l::File file = read_file(options.a2lFile);
    const io::UdpEndpoint listen = listening_endpoint(options, file.xcp());
    const std::string name = std::filesystem::path(options.a2lFile).stem();
    Server server(file, options.faults, listen, name);
    say("listening on " + io::to_text(server.endpoint()) + ": " + name + ", " +
        std::to_string(server.signals()) + " signals, " + std::to_string(file.xcp().events.size()) +
        " events");
    server.start(say);
    wait_for_end(signals, server, options);
    server.stop();
    say_what_was_sent(server);
    if (!server.error().empty())
        throw Failure(ExitStatus::network, server.error());
}

int fail(ExitStatus status, std::string line) {
    for (char& character : line)
        if (character == '\n')
            character = ' '; // one line, whatever a library's message looks like
    std::fprintf(stderr, "xcp_simulated_slave: %s\n", line.c_str());
    return static_cast<int>(status);
}

int run(int argc, char** argv) {
    const auto options = parse_options(argc, argv);
    try {
        if (options)
            serve(*options);
        return static_cast<int>(ExitStatus::success);
    } catch (const std::invalid_argument& error) {
        return fail(ExitStatus::file, options->a2lFile + ": " + error.what());
    }
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const Failure& failure) {
        return fail(failure.status(), failure.what());
    } catch (const std::system_error& error) {
        return fail(ExitStatus::network, error.what());
    } catch (const std::exception& error) {
        return fail(ExitStatus::internal, error.what());
    }
}
