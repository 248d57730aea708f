#pragma once
// Runs xcp_daq_task as a user does.

#include <string>
#include <vector>

#include <sys/types.h>

using Arguments = std::vector<std::string>;

// A process whose output can be awaited while it runs. The task gets a name of its own when it has
// no --name.
class TaskProgram {
  public:
    explicit TaskProgram(Arguments arguments, const char* program = XCP_DAQ_TASK);
    ~TaskProgram();
    TaskProgram(const TaskProgram&) = delete;
    TaskProgram& operator=(const TaskProgram&) = delete;

    // Reads until `text` has come. False when the output ends before.
    bool await_output(const std::string& text);
    const std::string& text() const { return text_; } // of the output so far
    void signal(int number) const;
    pid_t process() const { return process_; }

    struct End {
        int status; // exit status, or 128 and the signal's number
        std::string output;
        std::string errors;
    };
    End wait();

  private:
    pid_t process_ = -1;
    int output_ = -1;
    int errors_ = -1;
    std::string text_;
};

inline TaskProgram::End run_task(const Arguments& arguments) {
    return TaskProgram(arguments).wait();
}
