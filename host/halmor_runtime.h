#pragma once
/// @file
/// What the library expects of the Halmor runtime: the variable store, the spec-file parser and the
/// task services. The process that loads libapi_xcp_daq.so.7 provides these symbols; in this
/// project the stand-in (host/standin) or the tests' scripted double does.
///
/// Rules for all of them:
/// - C linkage. Texts are zero-terminated byte strings; a buffer that receives a text belongs to
///   the caller.
/// - None throws. A failure shows in the result alone.
/// - set_daq_integer and set_daq_real are called by the library's worker thread, SrrClockGettime
///   and one setprio too; everything else by the thread that registers and configures the task.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

extern "C" {

/// Identifies one variable of the store. Its two words mean something to the runtime only.
struct VariableId {
    std::uint64_t word[2]; ///< the runtime's own
};
static_assert(sizeof(VariableId) == 16 && alignof(VariableId) == 8);

/// Descriptor of a variable that receives DAQ values: a 64-byte block that the library allocates
/// zero-filled, the runtime fills, and every set_daq_* call passes back.
struct DaqVariable {
    std::uint8_t runtimePrivate1[8]; ///< the runtime's own
    std::uint16_t kind; ///< 2 = integer variable; 1 and 3 = the other kinds, written as real values
    std::uint8_t runtimePrivate2[6]; ///< the runtime's own
    void* object; ///< the variable object; null until daq_variable_setup has succeeded
    std::uint8_t runtimePrivate3[40]; ///< the runtime's own
};
static_assert(sizeof(DaqVariable) == 64 && alignof(DaqVariable) == 8);
static_assert(offsetof(DaqVariable, kind) == 8 && offsetof(DaqVariable, object) == 16);

// ---- variable store ----

/// Looks a variable up by name and fills *id. Result: 0 found, any other value the runtime's
/// status.
std::int16_t find_variable(const char* name, VariableId* id);

/// Address of the variable object, null when there is none under this id.
void* get_vrbl_adr(VariableId id);

/// Fills a zero-filled descriptor for the variable object at `address`. On failure the descriptor's
/// `object` stays null.
void daq_variable_setup(DaqVariable* descriptor, VariableId* id, void* address);

/// Writes one value into an integer variable, together with its sample time (seconds and
/// nanoseconds on the host's realtime scale). *sampleTime is read during the call only.
void set_daq_integer(DaqVariable* variable, std::int32_t value, const timespec* sampleTime);

/// The same for a variable of any other kind.
void set_daq_real(DaqVariable* variable, double value, const timespec* sampleTime);

// ---- spec-file parser ----

/// Finds the section `key` and reads its first line into `line` (1024 bytes, so at most 1023
/// characters). Result: below 0 no such section; else there is a line, and above 0 there may be
/// more. What a value says beyond its sign, where a search begins and what a key line looks like is
/// the runtime's choice; a spec file that gives its sections in the order in which the library asks
/// for them suits any.
std::int16_t get_1st_line(std::FILE* file, char* line, const char* key);

/// Reads the next line into `line`. Result: as get_1st_line's; below 0 at the end of the file.
std::int16_t get_next_line(std::FILE* file, char* line);

/// Splits `line` into at most `maxTokens` tokens; token k (from 1) goes, zero-terminated, to
/// tokens + (k - 1) * slotSize. `mode` and `*unused` mean something to the runtime only. Splits at
/// the runtime's default delimiters. Result: the number of tokens.
std::uint64_t parse_line(char* line, int maxTokens, int slotSize, int mode, char* tokens,
                         std::uint64_t* unused);

/// The same, splitting at any character of `delimiters`.
std::uint64_t parse_line_delim(char* line, int maxTokens, int slotSize, int mode, char* tokens,
                               std::uint64_t* unused, const char* delimiters);

// ---- task services ----

/// Attaches to the runtime's shared memory; *received gets a value of the runtime's own. Result: 0
/// when the runtime is not running.
std::int16_t link_to_memory(int which, std::int32_t* received);

/// Makes the caller a session of its own.
int _setsid();

/// Joins a layer of the runtime's processes, whatever the runtime means by it.
int join_layer(int layer);

/// Task id of the caller.
std::int32_t get_TLS_tid();

/// Looks a task name up. Result: -1 when no task is registered under it, else that task's id.
int _qnx_name_locate(int node, const char* name, int size, int* copies);

/// Copies at most `size` characters of `from` into the `size` bytes at `to`; `sourcePath` and
/// `sourceLine` name the caller in the runtime's diagnostics.
int copyn(const char* sourcePath, int sourceLine, char* to, const char* from, int size);

/// Sets the priority of `who` (0 = the caller).
int setprio(int who, int priority);

/// Attaches to a global event of the runtime and stores its handle in *event; `argument` means
/// something to the runtime only. Result: 0 success.
std::int16_t event_attach(const char* name, int argument, std::int32_t* event);

/// Registers a name with the message layer. Result: its id, -1 on failure.
std::int16_t SrrNameAttach(int node, const char* name);

/// Reads one of the runtime's clocks. Clock 5 has the scale of CLOCK_REALTIME.
int SrrClockGettime(int clock, timespec* now);

/// Writes one entry into the runtime's error log; `format` and what follows are as for printf.
int log_error(const char* sourcePath, int sourceLine, int code1, int code2, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

} // extern "C"
