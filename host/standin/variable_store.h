#pragma once
// The stand-in's variable store: variables by name, each with one value and the sample time that
// belongs to it.
//
// Threads: define and find may be called from any thread. A variable has one writer at a time (the
// library's worker) and any readers; a write takes no lock and never waits, and a reader gets a
// value with its own sample time or reads again.

#include "halmor_runtime.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <ctime>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace halmor_standin {

// Values as in a DaqVariable's `kind`.
enum class VariableKind : std::uint16_t { real = 1, integer = 2 };

// A consistent picture of one variable. An integer value is exact in a double.
struct Sample {
    double value;
    timespec sampleTime;
    std::uint64_t updates; // writes so far; value and sampleTime mean nothing while it is 0
};

// The variable object that a DaqVariable points to.
class Variable {
  public:
    // Longest name of the owning task.
    static constexpr std::size_t longest_owner = 49;

    // Throws std::invalid_argument for an owner's name that is too long.
    Variable(std::string_view name, VariableKind kind, std::string_view owner,
             std::size_t number = 0);

    const std::string& name() const { return name_; }
    VariableKind kind() const { return kind_; }
    std::size_t number() const { return number_; } // place in the store, from 0
    void write(double value, const timespec& sampleTime);
    Sample read() const;

  private:
    // What clients of the runtime find at fixed places: the owner's name and the marker word. At
    // the start of the object.
    alignas(8) std::array<char, 448> clientArea_{};
    std::string name_;
    VariableKind kind_;
    std::size_t number_;

    // Odd while a write is going on; half of it is the number of writes.
    alignas(64) std::atomic<std::uint64_t> sequence_ = 0;
    std::atomic<double> value_ = 0.0;
    std::atomic<std::int64_t> seconds_ = 0;
    std::atomic<std::int64_t> nanoseconds_ = 0;
};

// Sees every write, on the writing thread.
class WriteObserver {
  public:
    virtual ~WriteObserver() = default;
    virtual void written(const Variable& variable, double value, const timespec& sampleTime) = 0;
};

class VariableStore {
  public:
    // The store of the process.
    static VariableStore& instance();

    // Throws std::invalid_argument for a name that is defined already.
    Variable& define(const std::string& name, VariableKind kind, const std::string& owner);

    // Null when there is none. The variable lives as long as the process.
    Variable* find(const std::string& name);

    // All of them, in the order of their definition; not to be used while another thread defines.
    const std::deque<Variable>& variables() const { return variables_; }

    // The one observer of all writes, or null for none; not owned. To be changed while nothing
    // writes.
    static void observe(WriteObserver* observer) { observer_ = observer; }

    // For set_daq_integer and set_daq_real: once per value, so it looks at nothing but the variable
    // and the observer.
    static void write(Variable& variable, double value, const timespec& sampleTime) {
        variable.write(value, sampleTime);
        if (WriteObserver* observer = observer_.load(std::memory_order_acquire))
            observer->written(variable, value, sampleTime);
    }

    // For get_vrbl_adr: the variable under a number counted from 1, or null.
    Variable* at(std::uint64_t number);
    std::uint64_t number_of(const std::string& name); // 0 when there is none

  private:
    std::mutex mutex_;
    std::deque<Variable> variables_;               // guarded by mutex_; elements never move
    std::map<std::string, std::uint64_t> numbers_; // guarded by mutex_
    static std::atomic<WriteObserver*> observer_;
};

} // namespace halmor_standin
