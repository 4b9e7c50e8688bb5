// Cleaning up before a signal ends the process.
#ifndef VEX_TOOL_FATAL_SIGNAL_H
#define VEX_TOOL_FATAL_SIGNAL_H

namespace tool {

/// Calls @p clean_up, which must be safe in signal handlers, when one of the usual signals is about
/// to end the process; the process then ends by it all the same. Signals that the caller's shell
/// ignores stay ignored. nullptr takes the clean-up away.
void onFatalSignal(void (*clean_up)());

}  // namespace tool

#endif
