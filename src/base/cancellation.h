#pragma once

namespace quillora::base {

// Ctrl-C (SIGINT) and SIGTERM set a process-wide flag that long work (HTTP transfers, child
// processes, loops over many items) polls; the command then ends with "Cancelled." and exit 1.
void installCancellationHandlers();
bool isCancelled();
// Throws CancelledError when the flag is set.
void throwIfCancelled();
// For tests.
void setCancelled(bool cancelled);

}  // namespace quillora::base
