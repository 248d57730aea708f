#include "transport_udp.h"

Transport_udp& Transport_udp::instance() {
    static Transport_udp transport;
    return transport;
}
