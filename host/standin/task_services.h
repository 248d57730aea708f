#pragma once
// What the stand-in knows about the task that runs on it. The environment variable
// HALMOR_STANDIN=stopped makes it a runtime that is not running, which refuses every registration.

namespace halmor_standin {

// The priority that a thread of this process asked for last; 0 while none has. It is recorded, not
// applied: a real-time worker would distort an ordinary desk machine.
int recorded_priority();

} // namespace halmor_standin
