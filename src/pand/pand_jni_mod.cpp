// Post drive through Java: the library asks ZpandMod.postDrv for a drive,
// and the Java side answers on its own worker thread with the native
// "driveMsg", which handles one queued module message.
#include "pand_jni.h"
#include "zos_mod.h"

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
    return static_cast<jint>(Zos_ModDriveMsg());
}

}  // extern "C"
