#pragma once
// The stand-in's variable store: variables by name, each with one value and the sample time that
// belongs to it.
//
// Threads: define and find may be called from any thread. A variable has one writer at a time (the
// library's worker) and any readers; a write takes no lock and never waits, and a reader gets a
// value with its own sample time or reads again.

#include "halmor_runtime.h"
#include "raw_form.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <ctime>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
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
             std::size_t number = 0, const std::optional<RawForm>& rawForm = {});

    ~Variable() { delete rawWords_; }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

    const std::string& name() const { return name_; }
    VariableKind kind() const { return kind_; }
    std::size_t number() const { return number_; } // place in the store, from 0
    void write(double value, const timespec& sampleTime);
    Sample read() const;

    // ---- of a variable that is written in raw words ----

    const RawForm* raw_form() const; // null for any other variable
    // Takes one word of a value. True when it was the last one of a sample, with the value; the
    // writer's alone.
    bool take_word(std::size_t word, std::uint32_t bytes, const timespec& sampleTime,
                   double& value);
    // Values of an integer variable that its 32 bits do not hold: they became the nearest number
    // that they do, NaN became 0.
    std::uint64_t held_values() const;

  private:
    // What is kept between the words of one value; the writer's, except for the count.
    struct RawWords {
        RawConversion conversion;
        std::uint64_t first = 0; // word 0
        bool firstCame = false;
        timespec firstTime{};
        std::atomic<std::uint64_t> held = 0;

        // For a value of two words: makes all of its bytes of the later one.
        bool join(std::size_t word, const timespec& sampleTime, std::uint64_t& bytes);
    };
    double held(double value);

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
    RawWords* rawWords_ = nullptr; // owned; plain, so that the object's layout is standard
};

// Under this name the library finds the second word of a variable whose values come in two.
inline std::string second_word_of(const std::string& name) {
    return name + "#1";
}

// Which word of a variable's values the descriptor takes, from 0; nothing when it takes values.
inline std::optional<std::size_t> word_of(const DaqVariable& descriptor) {
    if (descriptor.runtimePrivate3[0] == 0)
        return {};
    return descriptor.runtimePrivate3[0] - 1U;
}

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

    // With a raw form the variable is written in raw words, always by set_daq_real: word 0 under
    // its own name, word 1, if there is one, as second_word_of(name). Throws std::invalid_argument
    // for a name that is defined already.
    Variable& define(const std::string& name, VariableKind kind, const std::string& owner,
                     const std::optional<RawForm>& rawForm = {});

    // Null when there is none. The variable lives as long as the process.
    Variable* find(const std::string& name);

    // All of them, in the order of their definition; not to be used while another thread defines.
    const std::deque<Variable>& variables() const { return variables_; }

    // The one observer of all writes, or null for none; not owned. To be changed while nothing
    // writes.
    static void observe(WriteObserver* observer) { observer_ = observer; }

    // For set_daq_integer and set_daq_real: once per value, so it looks at nothing but the variable
    // and the observer. A value in raw words is written when its last word has come.
    static void write(Variable& variable, double value, const timespec& sampleTime) {
        variable.write(value, sampleTime);
        if (WriteObserver* observer = observer_.load(std::memory_order_acquire))
            observer->written(variable, value, sampleTime);
    }

    // For find_variable: where what the library writes under a name goes.
    struct Target {
        std::uint64_t number = 0; // of the variable, counted from 1; 0 when there is none
        std::uint64_t word = 0;   // of its values, for a variable that is written in raw words
    };
    Target target_of(const std::string& name);
    // For get_vrbl_adr: the variable under a number counted from 1, or null.
    Variable* at(std::uint64_t number);

  private:
    std::mutex mutex_;
    std::deque<Variable> variables_;        // guarded by mutex_; elements never move
    std::map<std::string, Target> targets_; // guarded by mutex_
    static std::atomic<WriteObserver*> observer_;
};

} // namespace halmor_standin
