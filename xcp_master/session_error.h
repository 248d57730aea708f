#pragma once
// Why a session cannot be had, as one line that names the place and the cause.

#include <stdexcept>
#include <string>

namespace xcp_master {

class SessionError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// What the slave is does not allow it: another try changes nothing.
class Unsuitable : public SessionError {
  public:
    using SessionError::SessionError;
};

} // namespace xcp_master
