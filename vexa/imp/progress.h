// Checkpoints of long work, placed between bands of rows or between steps, never per pixel. They read the
// calling thread's current VProgress; without one they cost a thread-local read and do nothing.
#pragma once

namespace VEXA {

// Throws dip_exception_cancelled when the caller has cancelled the current progress.
void checkCancelled();
// Stops like checkCancelled(), then reports `fraction` (0..1) of the current section under `stage`.
void checkpoint(double fraction, const char* stage);

} // namespace VEXA
