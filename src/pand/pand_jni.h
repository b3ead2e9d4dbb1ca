// Internal side of the Java binding: the environment scope every Java call
// runs in, and the Java roads of the post drive, the OS timer and thread
// exit.
#pragma once

#include <jni.h>

#include "zpand_jni.h"
#include "zpand_timer.h"

namespace zpand::jni {

// The calling thread's JNI environment for one scope: attaches the thread
// when it is not attached yet and detaches it again at the end of the
// scope. env() is null when there is no virtual machine or attaching
// failed.
class EnvScope {
  public:
    EnvScope() : attached_(Zpand_GetJniEnv(&env_)) {}
    ~EnvScope() {
        if (env_ != nullptr) Zpand_PutJniEnv(env_, attached_);
    }
    EnvScope(const EnvScope &) = delete;
    EnvScope &operator=(const EnvScope &) = delete;
    JNIEnv *env() const { return env_; }

  private:
    JNIEnv *env_ = nullptr;
    uint32_t attached_;
};

// Clears a pending Java exception; true when there was one.
bool ClearException(JNIEnv *env);

// Detaches the calling thread from the virtual machine if it is attached.
void DetachCurrent();

// Calls the static ZpandMod.postDrv: ZOK, or ZFAILED without an environment.
uint32_t PostDrv();

// Keeps the callback and calls the static ZpandTimer.start with the length
// (ZOK, or ZFAILED without an environment); Stop calls ZpandTimer.stop.
uint32_t TimerStart(uint32_t len, PFN_ZPAND_TIMER_CB cb);
uint32_t TimerStop();
// Opens the bridge to expiry calls ("active"), and closes it again: the
// close waits for an expiry call still running, so the layer can free its
// timer state once it returns.
void TimerOpen();
void TimerClose();

}  // namespace zpand::jni
