// xcp_daq_task: a complete task of the Halmor system on the stand-in host.

#include "exit_status.h"
#include "options.h"
#include "run.h"

#include <cstdio>
#include <exception>
#include <string>

namespace {

int fail(task::ExitStatus status, std::string line) {
    for (char& character : line)
        if (character == '\n')
            character = ' '; // one line, whatever a library's message looks like
    std::fprintf(stderr, "xcp_daq_task: %s\n", line.c_str());
    return static_cast<int>(status);
}

} // namespace

int main(int argc, char** argv) {
    try {
        const auto options = task::parse_options(argc, argv);
        return static_cast<int>(options ? task::run(*options) : task::ExitStatus::success);
    } catch (const task::Failure& failure) {
        return fail(failure.status(), failure.what());
    } catch (const std::exception& error) {
        return fail(task::ExitStatus::internal, error.what());
    }
}
