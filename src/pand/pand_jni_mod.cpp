// Post drive through Java: the library asks ZpandMod.postDrv for a drive,
// and the Java side answers on its own worker thread with the native
// "driveMsg", which handles one queued module message.
#include "pand_jni.h"

// The module manager's drive, linked in with the module manager.
extern "C" __attribute__((weak)) uint32_t Zos_ModDriveMsg(void);

namespace zpand::jni {

uint32_t PostDrv() {
    EnvScope scope;
    JNIEnv *env = scope.env();
    if (env == nullptr) return ZFAILED;
    if (g_zZpandMod != nullptr && g_zZpandModPostDrv != nullptr) {
        env->CallStaticVoidMethod(g_zZpandMod, g_zZpandModPostDrv);
        ClearException(env);
    }
    return ZOK;
}

}  // namespace zpand::jni

extern "C" {

JNIEXPORT jint JNICALL Java_com_quelmar_kestro_ZpandMod_driveMsg(JNIEnv * /*pstEnv*/,
                                                                 jclass /*jCls*/) {
    return Zos_ModDriveMsg != nullptr ? static_cast<jint>(Zos_ModDriveMsg()) : ZFAILED;
}

}  // extern "C"
