#pragma once
// Diagnostics of the frame path. The transport's threads and the worker share standard output, so a
// line goes out in one insertion and is flushed. It is composed on the stack: the path must survive
// a diagnostic for which there is no memory.

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <iostream>

namespace xcp_daq {

// As printf, with the line end added; cut to 254 characters. Lines are rare and text is large, so
// it stays out of the callers' code.
[[gnu::format(printf, 1, 2), gnu::cold, gnu::noinline]] inline void print_line(const char* format,
                                                                               ...) {
    char line[256];
    va_list values;
    va_start(values, format);
    const int length = std::vsnprintf(line, sizeof line - 1, format, values);
    va_end(values);
    const std::streamsize end = std::clamp<std::streamsize>(length, 0, sizeof line - 2);
    line[end] = '\n';
    std::cout.write(line, end + 1).flush();
}

} // namespace xcp_daq
