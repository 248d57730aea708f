#!/usr/bin/python3
"""What a user would write instead: a million packets of six values, in datagrams as they come, to
converted and limited values. Once with struct, value by value; once with numpy, which can only begin
when all is there and knows that every packet has the same layout. Beside them the frame path.
Usage: python_scripts.py ALLOCATOR_WORKLOAD"""

import struct
import subprocess
import sys
import time

import numpy

PACKETS_PER_DATAGRAM = 46
DATAGRAMS = 1_000_000 // PACKETS_PER_DATAGRAM
FACTOR, OFFSET, LOWER, UPPER = 0.5, 10.0, -1e9, 1e9
MESSAGE = struct.Struct("<HHBB6I")

datagram = b"".join(MESSAGE.pack(26, n, 0, 0, *range(n, n + 6)) for n in range(PACKETS_PER_DATAGRAM))


def with_struct():
    values = [0.0] * 6
    for _ in range(DATAGRAMS):
        at = 0
        while at + 4 <= len(datagram):
            length = datagram[at] | datagram[at + 1] << 8
            if datagram[at + 4] == 0 and datagram[at + 5] == 0:
                raw = struct.unpack_from("<6I", datagram, at + 6)
                for i in range(6):
                    values[i] = min(max(raw[i] * FACTOR + OFFSET, LOWER), UPPER)
            at += 4 + length
    return values


def with_numpy():
    layout = numpy.dtype([("len", "<u2"), ("ctr", "<u2"), ("odt", "u1"), ("daq", "u1"), ("raw", "<u4", 6)])
    packets = numpy.frombuffer(datagram * DATAGRAMS, dtype=layout)
    return numpy.clip(packets["raw"] * FACTOR + OFFSET, LOWER, UPPER)[-1].tolist()


def seconds_of(decode):
    start = time.perf_counter()
    assert decode() == [raw * FACTOR + OFFSET for raw in range(45, 51)]
    return (time.perf_counter() - start) * 1e6 / (DATAGRAMS * PACKETS_PER_DATAGRAM)


def seconds_of_frame_path(workload):
    batch = float(subprocess.run([workload, "path", "26"], check=True, capture_output=True).stdout)
    return batch * 1e6 / (400 * PACKETS_PER_DATAGRAM)


print("a million packets of six values")
print(f"Python, struct:  {seconds_of(with_struct):.2f} s")
print(f"Python, numpy:   {seconds_of(with_numpy):.2f} s")
print(f"the frame path:  {seconds_of_frame_path(sys.argv[1]):.2f} s")
