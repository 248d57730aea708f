#include "variable_store.h"

#include "io/single_writer.h"

#include <cmath>
#include <stdexcept>
#include <type_traits>

namespace halmor_standin {

// Where a client of the runtime finds the name of the owning task.
static std::size_t owner_offset(VariableKind kind) {
    return kind == VariableKind::integer ? 216 : 224;
}

static_assert(std::is_standard_layout_v<Variable>, "the client area lies at the object's address");

// What a variable is for the library, which writes raw words as real values.
static VariableKind written_kind(const Variable& variable) {
    return variable.raw_form() != nullptr ? VariableKind::real : variable.kind();
}

Variable::Variable(std::string_view name, VariableKind kind, std::string_view owner,
                   std::size_t number, const std::optional<RawForm>& rawForm)
    : name_(name), kind_(kind), number_(number) {
    if (owner.size() > longest_owner)
        throw std::invalid_argument("task name longer than " + std::to_string(longest_owner) +
                                    " characters: " + std::string(owner));
    if (rawForm)
        rawWords_ = new RawWords{RawConversion(*rawForm)};
    owner.copy(clientArea_.data() + owner_offset(written_kind(*this)), owner.size());
}

// The value's stores are releases and its loads acquires, so that a reader which sees a new value
// also sees the odd sequence number that was stored before it. On x86-64 all of them are plain
// moves.
void Variable::write(double value, const timespec& sampleTime) {
    const std::uint64_t sequence = sequence_.load(std::memory_order_relaxed);
    sequence_.store(sequence + 1, std::memory_order_relaxed);
    value_.store(value, std::memory_order_release);
    seconds_.store(sampleTime.tv_sec, std::memory_order_release);
    nanoseconds_.store(sampleTime.tv_nsec, std::memory_order_release);
    sequence_.store(sequence + 2, std::memory_order_release);
}

Sample Variable::read() const {
    for (;;) {
        const std::uint64_t before = sequence_.load(std::memory_order_acquire);
        Sample sample{value_.load(std::memory_order_acquire),
                      {seconds_.load(std::memory_order_acquire),
                       nanoseconds_.load(std::memory_order_acquire)},
                      before / 2};
        if (before % 2 == 0 && sequence_.load(std::memory_order_relaxed) == before)
            return sample;
    }
}

const RawForm* Variable::raw_form() const {
    return rawWords_ != nullptr ? &rawWords_->conversion.form() : nullptr;
}

std::uint64_t Variable::held_values() const {
    return rawWords_ != nullptr ? rawWords_->held.load(std::memory_order_relaxed) : 0;
}

// A packet that is cut off ends between two words: word 1 goes with the word 0 of its own sample
// or with none.
bool Variable::RawWords::join(std::size_t word, const timespec& sampleTime, std::uint64_t& bytes) {
    if (word == 0) {
        first = bytes;
        firstTime = sampleTime;
        firstCame = true;
        return false;
    }
    const bool together = firstCame && firstTime.tv_sec == sampleTime.tv_sec &&
                          firstTime.tv_nsec == sampleTime.tv_nsec;
    firstCame = false;
    bytes = bytes << 32 | first;
    return together;
}

inline bool Variable::take_word(std::size_t word, std::uint32_t bytes, const timespec& sampleTime,
                                double& value) {
    std::uint64_t all = bytes;
    if (rawWords_->conversion.words() == 2 && !rawWords_->join(word, sampleTime, all))
        return false;
    value = rawWords_->conversion.value(all);
    if (kind_ == VariableKind::integer)
        value = held(value);
    return true;
}

double Variable::held(double value) {
    using Ends = std::numeric_limits<std::int32_t>;
    const double whole = std::trunc(value);
    if (whole >= Ends::min() && whole <= Ends::max())
        return whole + 0.0; // no -0
    io::add(rawWords_->held, 1);
    if (std::isnan(value))
        return 0.0;
    return value < 0 ? Ends::min() : Ends::max();
}

VariableStore& VariableStore::instance() {
    static VariableStore store;
    return store;
}

Variable& VariableStore::define(const std::string& name, VariableKind kind,
                                const std::string& owner, const std::optional<RawForm>& rawForm) {
    const std::lock_guard lock(mutex_);
    const std::string second = second_word_of(name);
    const bool twoWords = rawForm && RawConversion(*rawForm).words() == 2;
    if (targets_.contains(name) || (twoWords && targets_.contains(second)))
        throw std::invalid_argument("variable defined twice: " + name);
    Variable& variable = variables_.emplace_back(name, kind, owner, variables_.size(), rawForm);
    targets_[name] = {variables_.size(), 0};
    if (twoWords)
        targets_[second] = {variables_.size(), 1};
    return variable;
}

VariableStore::Target VariableStore::target_of(const std::string& name) {
    const std::lock_guard lock(mutex_);
    const auto found = targets_.find(name);
    return found == targets_.end() ? Target{} : found->second;
}

Variable* VariableStore::at(std::uint64_t number) {
    const std::lock_guard lock(mutex_);
    return number == 0 || number > variables_.size() ? nullptr : &variables_[number - 1];
}

Variable* VariableStore::find(const std::string& name) {
    const Target target = target_of(name);
    return target.word == 0 ? at(target.number) : nullptr;
}

std::atomic<WriteObserver*> VariableStore::observer_ = nullptr;

} // namespace halmor_standin

using halmor_standin::Variable;
using halmor_standin::VariableStore;

// Tells an identifier of this store from any other 16 bytes; the word's number is added to it.
constexpr std::uint64_t store_mark = 0x48414C4D4F5200;
constexpr std::uint64_t last_word = 1;
constexpr std::int16_t not_found = 2;

std::int16_t find_variable(const char* name, VariableId* id) {
    const auto [number, word] = VariableStore::instance().target_of(name);
    if (number == 0)
        return not_found;
    *id = {{number, store_mark + word}};
    return 0;
}

void* get_vrbl_adr(VariableId id) {
    return id.word[1] - store_mark <= last_word ? VariableStore::instance().at(id.word[0])
                                                : nullptr;
}

void daq_variable_setup(DaqVariable* descriptor, VariableId* id, void* address) {
    const auto& variable = *static_cast<Variable*>(address);
    descriptor->kind = static_cast<std::uint16_t>(halmor_standin::written_kind(variable));
    if (variable.raw_form() != nullptr)
        descriptor->runtimePrivate3[0] = static_cast<std::uint8_t>(id->word[1] - store_mark + 1);
    descriptor->object = address;
}

void set_daq_integer(DaqVariable* variable, std::int32_t value, const timespec* sampleTime) {
    VariableStore::write(*static_cast<Variable*>(variable->object), value, *sampleTime);
}

// Out of line, so that values that come as they are do not pay for its registers.
[[gnu::noinline]] static void write_word(const DaqVariable& descriptor, double bytes,
                                         const timespec& sampleTime) {
    Variable& variable = *static_cast<Variable*>(descriptor.object);
    double value;
    if (variable.take_word(*halmor_standin::word_of(descriptor), static_cast<std::uint32_t>(bytes),
                           sampleTime, value))
        VariableStore::write(variable, value, sampleTime);
}

void set_daq_real(DaqVariable* variable, double value, const timespec* sampleTime) {
    if (halmor_standin::word_of(*variable))
        write_word(*variable, value, *sampleTime);
    else
        VariableStore::write(*static_cast<Variable*>(variable->object), value, *sampleTime);
}
