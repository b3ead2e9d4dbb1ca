// Internal entry points of the platform adaptation.
#pragma once

#include <cstdint>

namespace zpand {

// Sets up the message pipe on the calling thread (Zpand_UiEvntInit).
void UiEvntInit();
// Records the calling thread as the host's main thread.
void NoteMainThread();
// The looper the pipe is watched by, and the calling thread's looper.
void *UiLooper();
void *CurrentLooper();
// The Java road of the post drive; 1 while no virtual machine is attached.
uint32_t JavaPostDrv();

}  // namespace zpand
