#pragma once
// Error codes of a negative answer, with their names and what to do about them.

#include <cstdint>

namespace xcp {

enum class Error : std::uint8_t {
    cmd_synch = 0x00,
    cmd_busy = 0x10,
    daq_active = 0x11,
    pgm_active = 0x12,
    cmd_unknown = 0x20,
    cmd_syntax = 0x21,
    out_of_range = 0x22,
    write_protected = 0x23,
    access_denied = 0x24,
    access_locked = 0x25,
    page_not_valid = 0x26,
    mode_not_valid = 0x27,
    segment_not_valid = 0x28,
    sequence = 0x29,
    daq_config = 0x2A,
    memory_overflow = 0x30,
    generic = 0x31,
    verify = 0x32,
    resource_temporary_not_accessible = 0x33,
    subcmd_unknown = 0x34,
    timecorr_state_change = 0x35,
    dbg = 0xFC
};

struct ErrorText {
    Error error;
    const char* name;
    const char* advice;
};

constexpr ErrorText error_texts[] = {
    {Error::cmd_synch, "ERR_CMD_SYNCH", "the answer to SYNCH"},
    {Error::cmd_busy, "ERR_CMD_BUSY", "the slave is busy: try again"},
    {Error::daq_active, "ERR_DAQ_ACTIVE", "lists are running: stop the other master"},
    {Error::pgm_active, "ERR_PGM_ACTIVE", "the slave is being programmed: wait for its end"},
    {Error::cmd_unknown, "ERR_CMD_UNKNOWN", "the slave does not have the command"},
    {Error::cmd_syntax, "ERR_CMD_SYNTAX", "the slave does not take the command's parameters"},
    {Error::out_of_range, "ERR_OUT_OF_RANGE", "a parameter is outside of what the slave has"},
    {Error::write_protected, "ERR_WRITE_PROTECTED", "the memory cannot be written"},
    {Error::access_denied, "ERR_ACCESS_DENIED",
     "the slave does not give this memory: does the A2L file belong to its software?"},
    {Error::access_locked, "ERR_ACCESS_LOCKED", "locked by seed and key: unlock the slave"},
    {Error::page_not_valid, "ERR_PAGE_NOT_VALID", "the page is not there"},
    {Error::mode_not_valid, "ERR_MODE_NOT_VALID", "the slave does not have this mode"},
    {Error::segment_not_valid, "ERR_SEGMENT_NOT_VALID", "the segment is not there"},
    {Error::sequence, "ERR_SEQUENCE", "the command came out of order: run again"},
    {Error::daq_config, "ERR_DAQ_CONFIG", "the lists are not configured as the slave wants them"},
    {Error::memory_overflow, "ERR_MEMORY_OVERFLOW",
     "the slave has too little memory: measure less"},
    {Error::generic, "ERR_GENERIC", "the slave gives no reason"},
    {Error::verify, "ERR_VERIFY", "the slave's own check failed"},
    {Error::resource_temporary_not_accessible, "ERR_RESOURCE_TEMPORARY_NOT_ACCESSIBLE",
     "not accessible now: try again later"},
    {Error::subcmd_unknown, "ERR_SUBCMD_UNKNOWN", "the slave does not have the command"},
    {Error::timecorr_state_change, "ERR_TIMECORR_STATE_CHANGE",
     "the slave's clock has changed its state: try again"},
    {Error::dbg, "ERR_DBG", "the slave's debugger refuses"},
};

// Null for a code that the standard does not have.
constexpr const ErrorText* find_error_text(std::uint8_t code) {
    for (const ErrorText& each : error_texts)
        if (static_cast<std::uint8_t>(each.error) == code)
            return &each;
    return nullptr;
}

} // namespace xcp
