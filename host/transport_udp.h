#pragma once
/// @file
/// The host's UDP transport as the library knows it.

/// One object per process. On a bench it calls api_xcp_daq_push_frame for every datagram; the
/// stand-in's calls nothing, there the task owns the receiver. The worker only makes sure that the
/// object exists.
class Transport_udp {
  public:
    /// The one object, made by the first call. Any thread may call.
    static Transport_udp& instance();

    Transport_udp(const Transport_udp&) = delete;
    Transport_udp& operator=(const Transport_udp&) = delete;

  private:
    Transport_udp() = default;
};
