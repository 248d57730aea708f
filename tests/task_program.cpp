#include "task_program.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <string_view>
#include <system_error>

#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string rest_of(int file) {
    std::string text;
    char buffer[4096];
    for (ssize_t n = 0; (n = read(file, buffer, sizeof buffer)) > 0;)
        text.append(buffer, static_cast<std::size_t>(n));
    return text;
}

} // namespace

// Tests run side by side, and each task needs a name of its own.
static void add_name(Arguments& arguments) {
    static int count = 0;
    if (std::find(arguments.begin(), arguments.end(), "--name") == arguments.end()) {
        arguments.emplace_back("--name");
        arguments.push_back("test_" + std::to_string(getpid()) + "_" + std::to_string(count++));
    }
}

TaskProgram::TaskProgram(Arguments arguments, const char* program) {
    if (program == std::string_view(XCP_DAQ_TASK))
        add_name(arguments);
    int output[2];
    int errors[2];
    if (pipe(output) != 0 || pipe(errors) != 0)
        throw std::system_error(errno, std::generic_category());
    process_ = fork();
    if (process_ == 0) {
        dup2(output[1], STDOUT_FILENO);
        dup2(errors[1], STDERR_FILENO);
        for (const int file : {output[0], output[1], errors[0], errors[1]})
            close(file);
        std::vector<char*> argv = {const_cast<char*>(program)};
        for (const std::string& argument : arguments)
            argv.push_back(const_cast<char*>(argument.c_str()));
        argv.push_back(nullptr);
        execv(program, argv.data());
        _exit(127);
    }
    close(output[1]);
    close(errors[1]);
    output_ = output[0];
    errors_ = errors[0];
}

TaskProgram::~TaskProgram() {
    if (process_ > 0) {
        kill(process_, SIGKILL);
        wait();
    }
    close(output_);
    close(errors_);
}

bool TaskProgram::await_output(const std::string& text) {
    char buffer[4096];
    while (text_.find(text) == std::string::npos) {
        const ssize_t n = read(output_, buffer, sizeof buffer);
        if (n <= 0)
            return false;
        text_.append(buffer, static_cast<std::size_t>(n));
    }
    return true;
}

void TaskProgram::signal(int number) const {
    kill(process_, number);
}

TaskProgram::End TaskProgram::wait() {
    End end;
    end.output = text_ + rest_of(output_);
    end.errors = rest_of(errors_);
    int status = 0;
    waitpid(process_, &status, 0);
    process_ = -1;
    end.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return end;
}
