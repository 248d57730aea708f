#pragma once
// A table of the variables that is redrawn in place while the task runs on a terminal. What the
// library prints meanwhile scrolls below it.

#include "host/standin/variable_store.h"
#include "report.h"

#include <cstddef>
#include <deque>
#include <string>
#include <vector>

namespace task {

// The table as lines of text, at most `width` characters each and `height` of them. Remembers what
// the earlier calls saw, for rates and traces.
class LiveTable {
  public:
    std::vector<std::string> lines(std::size_t width, std::size_t height, const RunCounts& counts);

  private:
    std::string row(const halmor_standin::Variable& variable, double seconds,
                    std::size_t nameWidth);

    struct History {
        std::deque<double> values;                            // at each call, the latest last
        std::deque<std::pair<double, std::uint64_t>> updates; // seconds, updates
    };
    std::vector<History> histories_; // by the variable's place in the store
};

// The terminal is given back in order when the object is destroyed.
class LiveView {
  public:
    // Whether standard output is a terminal that such a table can be drawn on.
    static bool possible();

    ~LiveView();
    void draw(const RunCounts& counts);

  private:
    LiveTable table_;
    std::size_t rows_ = 0; // of the window when it was last drawn on
    std::size_t columns_ = 0;
};

} // namespace task
