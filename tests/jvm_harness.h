// Harness of the JVM tests: one Java virtual machine per process, created
// by the program's main with the class path given on its command line,
// and the library loaded into it through System.load (so the machine runs
// JNI_OnLoad as an application's would). With --bind-first the program
// first calls the library's binding itself, as a host that binds the
// library before Java loads it would.
#pragma once

#include <jni.h>

#include <cstdint>
#include <string>

namespace kjvm {

JavaVM *Vm();
// The environment of the calling thread, which must be attached (the
// thread running the tests is).
JNIEnv *Env();
// Whether System.load of the library succeeded.
bool Loaded();
// What the binding call made before the load answered (--bind-first); -1
// when the program made none.
int64_t BindFirstResult();
// A class found through the application class loader (a local reference),
// null when it is not there (the exception cleared).
jclass FindAppClass(JNIEnv *env, const char *name);
// Calls a static "()V" or "(J)V" method; false when it threw (the
// exception is cleared and its text kept for PendingText).
bool CallStatic(JNIEnv *env, const char *cls, const char *name, const char *sig, ...);
// Class name of the last exception CallStatic cleared ("" when none).
std::string LastException();
// The Java name of the calling thread ("" when not attached).
std::string ThreadName();

}  // namespace kjvm
