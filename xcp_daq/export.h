#pragma once
// Marks what the library exports. The list of exported symbols is exports.map; both are needed:
// this keeps a symbol visible to the linker, the list keeps everything else out.
#define XCP_DAQ_EXPORT __attribute__((visibility("default")))
