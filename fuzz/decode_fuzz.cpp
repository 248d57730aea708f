// A measurement table and a datagram, both drawn from the input, through ingestion and decoder.

#include "api_xcp_daq_threads.h"
#include "fresh_record.h"
#include "host/standin/variable_store.h"

#include <fuzzer/FuzzedDataProvider.h>

using halmor_standin::VariableKind;
using halmor_standin::VariableStore;

namespace {

constexpr const char* names[] = {"real", "integer", "third", "fourth", "filler"};

bool define_variables() {
    for (const auto& [name, kind] :
         {std::pair("real", VariableKind::real), std::pair("integer", VariableKind::integer),
          std::pair("third", VariableKind::integer), std::pair("fourth", VariableKind::real)})
        VariableStore::instance().define(name, kind, "");
    return true;
}

double any_double(FuzzedDataProvider& input) {
    const auto bits = input.ConsumeIntegral<std::uint64_t>();
    double value;
    static_assert(sizeof value == sizeof bits);
    __builtin_memcpy(&value, &bits, sizeof value);
    return input.ConsumeBool() ? value : static_cast<double>(static_cast<std::int16_t>(bits));
}

void add_measurement(FuzzedDataProvider& input) {
    const std::string name = input.PickValueInArray(names);
    const int list = input.ConsumeIntegralInRange(-1, 4);
    const int odt = input.ConsumeIntegralInRange(0, 3);
    const int index =
        input.ConsumeBool() ? input.ConsumeIntegralInRange(0, 5) : input.ConsumeIntegral<int>();
    const int size =
        input.ConsumeBool() ? input.PickValueInArray({1, 2, 4, 8}) : input.ConsumeIntegral<int>();
    api_xcp_daq::addMeasurement(name, list, odt, index, size,
                                input.ConsumeIntegral<std::uint8_t>());
    api_xcp_daq::addComputeMethod(name, list, 0, any_double(input), any_double(input), 0,
                                  input.ConsumeIntegralInRange(0, 1), any_double(input),
                                  any_double(input));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static fuzz::QuietOutput quiet;
    static const bool defined = define_variables();
    fuzz::refresh_record();
    FuzzedDataProvider input(data, size);
    for (int count = defined ? input.ConsumeIntegralInRange(0, 12) : 0; count > 0; --count)
        add_measurement(input);
    // A buffer of exactly the datagram's size, so that the sanitizer sees every byte beyond it.
    const std::vector<std::uint8_t> payload = input.ConsumeRemainingBytes<std::uint8_t>();
    api_xcp_daq_push_frame(payload.data(), payload.size());
    timespec base{1, 0};
    while (XCPFrameBuffer.size() > 0)
        api_xcp_daq::processFrame(XCPFrameBuffer.wait_for_buffer(std::chrono::milliseconds(0)),
                                  &base);
    return 0;
}
