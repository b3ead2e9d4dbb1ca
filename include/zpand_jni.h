/*
 * Java binding: the library's entry when a Java virtual machine loads it,
 * the JNI environment helpers every Java bridge uses, the Java timer
 * bridge and the natives the Java classes of com/quelmar/nubo/kestro call.
 *
 * This header needs <jni.h> (the Android NDK's, or a JDK's include
 * directories on a desktop build), so the umbrella header leaves it out:
 * a C host that never meets Java includes kestro_lite.h alone.
 *
 * Loading binds, once per process and for the life of the process:
 *   ZpandNet.getLocalIP  "()Ljava/lang/String;"  static, called by the library
 *   ZpandMod.postDrv     "()V"                   static, called by the library
 *   ZpandMod.driveMsg    "()V"                   native, registered
 *   ZpandTimer.doInit / doDestroy / active "()V" natives, registered
 *   java/lang/String "<init>" "([BLjava/lang/String;)V" and "getBytes"
 *   "(Ljava/lang/String;)[B" with the charset name "utf-8"
 * A class or method that is missing stops binding at that step (ZpandNet,
 * then ZpandMod) or is skipped (the classes that take natives); the
 * library loads all the same and what stayed unbound does nothing.
 */
#ifndef ZPAND_JNI_H
#define ZPAND_JNI_H

#include <jni.h>

#include "zos_type.h"

ZOS_BEGIN_DECLS

/* JNI version JNI_OnLoad reports and the environment is asked for (1.2). */
#define ZPAND_JNI_VERSION 0x00010002

/* Process-wide bindings, written only while the library is loaded and never
 * released (null while unbound). */
KESTRO_API extern JavaVM *g_zZosJvm;
KESTRO_API extern jclass g_zZpandNet;
KESTRO_API extern jclass g_zZpandMod;
KESTRO_API extern jmethodID g_zZpandNetGetLocalIP;
KESTRO_API extern jmethodID g_zZpandModPostDrv;

/* JNI_OnLoad (declared by jni.h) runs Zpand_JniOnLoad and always returns
 * ZPAND_JNI_VERSION. Zpand_JniOnLoad binds only when no virtual machine is
 * stored yet: ZOK when every step bound, ZFAILED when a step stopped
 * binding or the machine was already stored (then nothing changes). */
KESTRO_API uint32_t Zpand_JniOnLoad(JavaVM *pstJvm);
KESTRO_API JavaVM *Zpand_GetJvm(void);

/* The calling thread's environment in *ppstEnv. Returns 1 when the call
 * attached the thread (release it with Zpand_PutJniEnv(env, 1) at once),
 * else 0; on failure *ppstEnv is null (and 0 is returned). */
KESTRO_API uint32_t Zpand_GetJniEnv(JNIEnv **ppstEnv);
/* Detaches the calling thread when uiAttached says Zpand_GetJniEnv
 * attached it; otherwise does nothing. */
KESTRO_API void Zpand_PutJniEnv(JNIEnv *pstEnv, uint32_t uiAttached);

/* A NUL-terminated UTF-8 text as a new local Java string; null for a null
 * text, an unbound String class or a Java failure (no exception is left
 * pending). */
KESTRO_API jstring Zpand_BytesToJstring(JNIEnv *pstEnv, const char *pcText);
/* The UTF-8 bytes of a Java string in a NUL-terminated block from the C
 * library's malloc (the caller releases it with free); its length without
 * the NUL goes to *puiLen when puiLen is not null. Null for a null string,
 * an unbound String class or a Java failure. */
KESTRO_API char *Zpand_JstringToBytes(JNIEnv *pstEnv, jstring jText, uint32_t *puiLen);

/* The HTTP bridge's load step, run last by Zpand_JniOnLoad when the
 * library carries the HTTP bridge: ZOK when ZpandHttp was bound. */
KESTRO_API uint32_t Zpand_HttpOnLoad(JNIEnv *pstEnv);

/* Natives. The classes bound live in com/quelmar/nubo/kestro and get these
 * through registration at load; the names below, of a package without the
 * vendor segment, are exported as well. */
JNIEXPORT jint JNICALL Java_com_quelmar_kestro_ZpandMod_driveMsg(JNIEnv *pstEnv, jclass jCls);
JNIEXPORT void JNICALL Java_com_quelmar_kestro_ZpandTimer_doInit(JNIEnv *pstEnv, jclass jCls);
JNIEXPORT void JNICALL Java_com_quelmar_kestro_ZpandTimer_doDestroy(JNIEnv *pstEnv, jclass jCls);
JNIEXPORT void JNICALL Java_com_quelmar_kestro_ZpandTimer_active(JNIEnv *pstEnv, jclass jCls);
/* ZpandHttp.notifyStatus(id, status): hands the status to
 * Zos_HttpNotifyStatus (registered by Zpand_HttpOnLoad). */
JNIEXPORT void JNICALL Java_com_quelmar_kestro_ZpandHttp_notifyStatus(JNIEnv *pstEnv, jclass jCls,
                                                                      jint iId, jint iStatus);

ZOS_END_DECLS

#endif /* ZPAND_JNI_H */
