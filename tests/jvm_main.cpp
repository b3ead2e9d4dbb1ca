// Main of the JVM tests: creates the virtual machine on a thread of its
// own (HotSpot does not like the process's first thread), loads the
// library into it from a class on the class path, then runs the tests on
// that thread.
//   kestro_jvm_tests --classpath=JAR[:JAR...] [--bind-first] [gtest flags]
#include <pthread.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "jvm_harness.h"
#include "zos_test.h"
#include "zpand_jni.h"

namespace kjvm {
namespace {

JavaVM *g_vm = nullptr;
bool g_loaded = false;
bool g_bindFirst = false;
int64_t g_bindFirstResult = -1;
std::string g_lastException;
std::string g_classPath;
int g_result = 1;

std::string TakeException(JNIEnv *env) {
    jthrowable t = env->ExceptionOccurred();
    if (t == nullptr) return "";
    env->ExceptionClear();
    jclass cls = env->GetObjectClass(t);
    jclass clsCls = env->FindClass("java/lang/Class");
    jmethodID getName = env->GetMethodID(clsCls, "getName", "()Ljava/lang/String;");
    auto name = static_cast<jstring>(env->CallObjectMethod(cls, getName));
    std::string out;
    if (name != nullptr) {
        const char *utf = env->GetStringUTFChars(name, nullptr);
        out = utf;
        env->ReleaseStringUTFChars(name, utf);
    }
    env->ExceptionClear();
    return out;
}

void *Run(void *) {
    std::string opt = "-Djava.class.path=" + g_classPath;
    JavaVMOption options[2] = {};
    options[0].optionString = const_cast<char *>(opt.c_str());
    options[1].optionString = const_cast<char *>("-Xss2m");
    JavaVMInitArgs args{};
    args.version = JNI_VERSION_1_8;
    args.nOptions = 2;
    args.options = options;
    args.ignoreUnrecognized = JNI_FALSE;
    JNIEnv *env = nullptr;
    if (JNI_CreateJavaVM(&g_vm, reinterpret_cast<void **>(&env), &args) != JNI_OK) {
        std::fprintf(stderr, "JNI_CreateJavaVM failed\n");
        return nullptr;
    }
    if (g_bindFirst) g_bindFirstResult = Zpand_JniOnLoad(g_vm);
    jstring path = env->NewStringUTF(KESTRO_LIBRARY_PATH);
    g_loaded = CallStatic(env, "com/quelmar/nubo/kestro/test/KestroTestLoader", "load",
                          "(Ljava/lang/String;)V", path);
    if (!g_loaded) std::fprintf(stderr, "System.load: %s\n", g_lastException.c_str());
    env->DeleteLocalRef(path);
    g_result = RUN_ALL_TESTS();
    // The machine is left running: destroying it waits for its non-daemon
    // threads, and the process ends right after.
    return nullptr;
}

}  // namespace

JavaVM *Vm() {
    return g_vm;
}

JNIEnv *Env() {
    void *env = nullptr;
    if (g_vm == nullptr || g_vm->GetEnv(&env, JNI_VERSION_1_2) != JNI_OK) return nullptr;
    return static_cast<JNIEnv *>(env);
}

bool Loaded() {
    return g_loaded;
}

int64_t BindFirstResult() {
    return g_bindFirstResult;
}

jclass FindAppClass(JNIEnv *env, const char *name) {
    jclass cls = env->FindClass(name);
    if (cls == nullptr) env->ExceptionClear();
    return cls;
}

bool CallStatic(JNIEnv *env, const char *clsName, const char *name, const char *sig, ...) {
    g_lastException.clear();
    jclass cls = FindAppClass(env, clsName);
    if (cls == nullptr) {
        g_lastException = "class not found";
        return false;
    }
    jmethodID id = env->GetStaticMethodID(cls, name, sig);
    if (id == nullptr) {
        g_lastException = TakeException(env);
        env->DeleteLocalRef(cls);
        return false;
    }
    va_list ap;
    va_start(ap, sig);
    env->CallStaticVoidMethodV(cls, id, ap);
    va_end(ap);
    env->DeleteLocalRef(cls);
    g_lastException = TakeException(env);
    return g_lastException.empty();
}

std::string LastException() {
    return g_lastException;
}

std::string ThreadName() {
    JNIEnv *env = Env();
    if (env == nullptr) return "";
    jclass cls = FindAppClass(env, "java/lang/Thread");
    jmethodID current = env->GetStaticMethodID(cls, "currentThread", "()Ljava/lang/Thread;");
    jmethodID getName = env->GetMethodID(cls, "getName", "()Ljava/lang/String;");
    jobject thread = env->CallStaticObjectMethod(cls, current);
    auto name = static_cast<jstring>(env->CallObjectMethod(thread, getName));
    const char *utf = env->GetStringUTFChars(name, nullptr);
    std::string out = utf;
    env->ReleaseStringUTFChars(name, utf);
    env->DeleteLocalRef(name);
    env->DeleteLocalRef(thread);
    env->DeleteLocalRef(cls);
    return out;
}

}  // namespace kjvm

int main(int argc, char **argv) {
    ::testing::InitGoogleTest(&argc, argv);
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--classpath=", 12) == 0) kjvm::g_classPath = argv[i] + 12;
        if (std::strcmp(argv[i], "--bind-first") == 0) kjvm::g_bindFirst = true;
    }
    if (kjvm::g_classPath.empty()) {
        std::fprintf(stderr, "usage: %s --classpath=JAR[:JAR...] [--bind-first] [gtest flags]\n",
                     argv[0]);
        return 2;
    }
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, 16u << 20);
    pthread_t thread;
    if (pthread_create(&thread, &attr, kjvm::Run, nullptr) != 0) return 1;
    pthread_attr_destroy(&attr);
    pthread_join(thread, nullptr);
    return kjvm::g_result;
}
