#pragma once
/// @file
/// The host's UDP transport as the library knows it.

/// One object per process, which calls api_xcp_daq_push_frame for every datagram. The worker only
/// makes sure that it exists.
class Transport_udp {
  public:
    /// The one object, made by the first call. Any thread may call.
    static Transport_udp& instance();

    Transport_udp(const Transport_udp&) = delete;
    Transport_udp& operator=(const Transport_udp&) = delete;

  private:
    Transport_udp() = default;
};
