#pragma once
/// @file
/// Registration of the calling task with the Halmor runtime.

#include "export.h"

#include <cstdint>

/// Task id of the registered task; 0 until the registration has come that far.
XCP_DAQ_EXPORT extern std::int32_t xcp_master_pid;

/// Registers the calling task under `task_name`: once, first of all, from the controlling thread. A
/// priority from 1 to 19 is applied, any other leaves the caller's as it is; *config_event receives
/// the host's configuration event; the last three pointers are ignored. Result: the id of the name,
/// or -1 when the runtime is not running (a line on standard output) or has refused (an entry in
/// the host's error log). What was done before a failure stays done.
XCP_DAQ_EXPORT std::int32_t xcp_daq_master_init(char* task_name, short priority, int* config_event,
                                                int* unused1, int* unused2, int* unused3);
