#include "api_xcp_daq.h"

#include <memory>
#include <new>

constexpr int no_name = -1;
constexpr int no_descriptor = 46;

int HMAPI_DAQ_find_var(const char* name, void** var) {
    if (name == nullptr)
        return no_name;
    VariableId id{};
    if (const std::int16_t status = find_variable(name, &id); status != 0)
        return status;
    void* address = get_vrbl_adr(id);
    if (address == nullptr)
        return no_descriptor;
    std::unique_ptr<DaqVariable> descriptor(new (std::nothrow) DaqVariable{});
    if (!descriptor)
        return no_descriptor;
    daq_variable_setup(descriptor.get(), &id, address);
    if (descriptor->object == nullptr)
        return no_descriptor;
    *var = descriptor.release();
    return 0;
}
