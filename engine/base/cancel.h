#pragma once

// Cancelling a run early, by a signal.

namespace kvo::base {

/// From now on SIGTERM, SIGINT and SIGHUP only set a flag, and writing to a pipe that nobody reads
/// fails instead of ending the process.
void catch_cancel_signals();

/// Whether one of those signals has arrived. May be called from any thread.
bool cancel_requested();

/// Throws Cancelled when one of those signals has arrived.
void stop_if_cancelled();

}  // namespace kvo::base
