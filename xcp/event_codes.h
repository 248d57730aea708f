#pragma once
// Codes of events (PID 0xFD) and of service requests (PID 0xFC), as the XCP protocol layer has
// them.

#include <cstdint>

namespace xcp {

enum class Event : std::uint8_t {
    resume_mode = 0x00,
    clear_daq = 0x01,
    store_daq = 0x02,
    store_cal = 0x03,
    cmd_pending = 0x05,
    daq_overload = 0x06,
    session_terminated = 0x07,
    time_sync = 0x08,
    stim_timeout = 0x09,
    sleep = 0x0A,
    wake_up = 0x0B,
    ecu_state_change = 0x0C,
    user = 0xFE,
    transport = 0xFF
};

struct EventText {
    Event event;
    const char* name;
    const char* meaning;
};

constexpr EventText event_texts[] = {
    {Event::resume_mode, "EV_RESUME_MODE", "the slave begins in RESUME mode"},
    {Event::clear_daq, "EV_CLEAR_DAQ", "the stored DAQ lists are cleared"},
    {Event::store_daq, "EV_STORE_DAQ", "the DAQ lists are stored"},
    {Event::store_cal, "EV_STORE_CAL", "the calibration is stored"},
    {Event::cmd_pending, "EV_CMD_PENDING", "an answer takes longer"},
    {Event::daq_overload, "EV_DAQ_OVERLOAD", "samples were lost"},
    {Event::session_terminated, "EV_SESSION_TERMINATED", "the session is over"},
    {Event::time_sync, "EV_TIME_SYNC", "time synchronisation"},
    {Event::stim_timeout, "EV_STIM_TIMEOUT", "a stimulation came too late"},
    {Event::sleep, "EV_SLEEP", "the slave goes to sleep"},
    {Event::wake_up, "EV_WAKE_UP", "the slave wakes up"},
    {Event::ecu_state_change, "EV_ECU_STATE_CHANGE", "the state of the ECU has changed"},
    {Event::user, "EV_USER", "an event of the slave's own"},
    {Event::transport, "EV_TRANSPORT", "an event of the transport layer"},
};

// Null for a code that the standard does not have.
inline const EventText* find_event_text(std::uint8_t code) {
    for (const EventText& text : event_texts)
        if (static_cast<std::uint8_t>(text.event) == code)
            return &text;
    return nullptr;
}

// Of a service request: a text follows.
constexpr std::uint8_t service_text = 0x01;

} // namespace xcp
