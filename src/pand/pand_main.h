// Internal entry points of the platform adaptation.
#pragma once

namespace zpand {

// Records the calling thread as the host's main (looper) thread.
void UiEvntInit();

}  // namespace zpand
