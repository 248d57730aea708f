#include "variable_store.h"

#include <stdexcept>
#include <type_traits>

namespace halmor_standin {

// Where a client of the runtime finds the name of the owning task.
static std::size_t owner_offset(VariableKind kind) {
    return kind == VariableKind::integer ? 216 : 224;
}

static_assert(std::is_standard_layout_v<Variable>, "the client area lies at the object's address");

Variable::Variable(std::string_view name, VariableKind kind, std::string_view owner,
                   std::size_t number)
    : name_(name), kind_(kind), number_(number) {
    if (owner.size() > longest_owner)
        throw std::invalid_argument("task name longer than " + std::to_string(longest_owner) +
                                    " characters: " + std::string(owner));
    owner.copy(clientArea_.data() + owner_offset(kind), owner.size());
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

VariableStore& VariableStore::instance() {
    static VariableStore store;
    return store;
}

Variable& VariableStore::define(const std::string& name, VariableKind kind,
                                const std::string& owner) {
    const std::lock_guard lock(mutex_);
    if (numbers_.contains(name))
        throw std::invalid_argument("variable defined twice: " + name);
    Variable& variable = variables_.emplace_back(name, kind, owner, variables_.size());
    numbers_[name] = variables_.size();
    return variable;
}

std::uint64_t VariableStore::number_of(const std::string& name) {
    const std::lock_guard lock(mutex_);
    const auto found = numbers_.find(name);
    return found == numbers_.end() ? 0 : found->second;
}

Variable* VariableStore::at(std::uint64_t number) {
    const std::lock_guard lock(mutex_);
    return number == 0 || number > variables_.size() ? nullptr : &variables_[number - 1];
}

Variable* VariableStore::find(const std::string& name) {
    return at(number_of(name));
}

std::atomic<WriteObserver*> VariableStore::observer_ = nullptr;

} // namespace halmor_standin

using halmor_standin::Variable;
using halmor_standin::VariableStore;

// Tells an identifier of this store from any other 16 bytes.
constexpr std::uint64_t store_mark = 0x48414C4D4F52;
constexpr std::int16_t not_found = 2;

std::int16_t find_variable(const char* name, VariableId* id) {
    const std::uint64_t number = VariableStore::instance().number_of(name);
    if (number == 0)
        return not_found;
    *id = {{number, store_mark}};
    return 0;
}

void* get_vrbl_adr(VariableId id) {
    return id.word[1] == store_mark ? VariableStore::instance().at(id.word[0]) : nullptr;
}

void daq_variable_setup(DaqVariable* descriptor, VariableId*, void* address) {
    descriptor->kind = static_cast<std::uint16_t>(static_cast<Variable*>(address)->kind());
    descriptor->object = address;
}

void set_daq_integer(DaqVariable* variable, std::int32_t value, const timespec* sampleTime) {
    VariableStore::write(*static_cast<Variable*>(variable->object), value, *sampleTime);
}

void set_daq_real(DaqVariable* variable, double value, const timespec* sampleTime) {
    VariableStore::write(*static_cast<Variable*>(variable->object), value, *sampleTime);
}
