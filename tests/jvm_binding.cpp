// Loading the library into a real Java virtual machine: what it binds,
// what a second load does, the environment helpers and text conversion.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "jvm_harness.h"
#include "zos_test.h"
#include "zpand_jni.h"

namespace {

constexpr const char *kTimer = "com/quelmar/nubo/kestro/ZpandTimer";

bool Attached() {
    void *env = nullptr;
    return kjvm::Vm()->GetEnv(&env, JNI_VERSION_1_2) == JNI_OK;
}

// The bytes of a text after a trip through a Java string and back.
std::string RoundTrip(const std::string &text, int32_t *javaLength) {
    JNIEnv *env = kjvm::Env();
    jstring j = Zpand_BytesToJstring(env, text.c_str());
    if (j == nullptr) return "<null>";
    *javaLength = env->GetStringLength(j);
    uint32_t len = 0;
    char *bytes = Zpand_JstringToBytes(env, j, &len);
    env->DeleteLocalRef(j);
    if (bytes == nullptr) return "<null>";
    std::string out(bytes, len);
    EXPECT_EQ(bytes[len], '\0');
    std::free(bytes);
    return out;
}

// Addresses of interfaces that are up and not loopback, as text.
std::vector<std::string> LocalAddresses() {
    std::vector<std::string> out;
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0) return out;
    for (ifaddrs *a = list; a != nullptr; a = a->ifa_next) {
        if (a->ifa_addr == nullptr || (a->ifa_flags & IFF_UP) == 0 ||
            (a->ifa_flags & IFF_LOOPBACK) != 0) {
            continue;
        }
        const int family = a->ifa_addr->sa_family;
        if (family != AF_INET && family != AF_INET6) continue;
        char host[NI_MAXHOST];
        const socklen_t size =
            family == AF_INET ? sizeof(sockaddr_in) : static_cast<socklen_t>(sizeof(sockaddr_in6));
        if (getnameinfo(a->ifa_addr, size, host, sizeof(host), nullptr, 0, NI_NUMERICHOST) == 0) {
            std::string text = host;
            out.push_back(text.substr(0, text.find('%')));
        }
    }
    freeifaddrs(list);
    return out;
}

bool SameAddress(const std::string &a, const std::string &b) {
    unsigned char x[16] = {}, y[16] = {};
    for (int family : {AF_INET, AF_INET6}) {
        if (inet_pton(family, a.c_str(), x) == 1 && inet_pton(family, b.c_str(), y) == 1) {
            return std::memcmp(x, y, sizeof(x)) == 0;
        }
    }
    return false;
}

}  // namespace

TEST(JvmBinding, LoadBindsEveryClassAndMethod) {
    ASSERT_TRUE(kjvm::Loaded());
    EXPECT_EQ(Zpand_GetJvm(), kjvm::Vm());
    EXPECT_NE(g_zZpandNet, nullptr);
    EXPECT_NE(g_zZpandNetGetLocalIP, nullptr);
    EXPECT_NE(g_zZpandMod, nullptr);
    EXPECT_NE(g_zZpandModPostDrv, nullptr);
    JNIEnv *env = kjvm::Env();
    // Global references to the classes that are on the class path.
    EXPECT_EQ(env->GetObjectRefType(g_zZpandNet), JNIGlobalRefType);
    jclass mod = kjvm::FindAppClass(env, "com/quelmar/nubo/kestro/ZpandMod");
    EXPECT_TRUE(env->IsSameObject(mod, g_zZpandMod));
    env->DeleteLocalRef(mod);
    // The timer natives are registered (they are exported only under the
    // name of a package without the vendor segment, which the machine
    // would never find on its own).
    EXPECT_TRUE(kjvm::CallStatic(env, kTimer, "doInit", "()V")) << kjvm::LastException();
    EXPECT_TRUE(kjvm::CallStatic(env, kTimer, "active", "()V")) << kjvm::LastException();
}

TEST(JvmBinding, SecondLoadReturnsTheVersionAndChangesNothing) {
    const jclass net = g_zZpandNet, mod = g_zZpandMod;
    const jmethodID ip = g_zZpandNetGetLocalIP, drv = g_zZpandModPostDrv;
    EXPECT_EQ(JNI_OnLoad(kjvm::Vm(), nullptr), 0x10002);
    EXPECT_EQ(Zpand_JniOnLoad(kjvm::Vm()), ZFAILED);
    EXPECT_EQ(Zpand_JniOnLoad(nullptr), ZFAILED);
    EXPECT_EQ(g_zZpandNet, net);
    EXPECT_EQ(g_zZpandMod, mod);
    EXPECT_EQ(g_zZpandNetGetLocalIP, ip);
    EXPECT_EQ(g_zZpandModPostDrv, drv);
    EXPECT_EQ(Zpand_GetJvm(), kjvm::Vm());
    EXPECT_FALSE(kjvm::Env()->ExceptionCheck());
}

TEST(JvmBinding, EnvironmentOfAnAttachedThreadIsJustReturned) {
    JNIEnv *env = nullptr;
    EXPECT_EQ(Zpand_GetJniEnv(&env), 0u);
    EXPECT_EQ(env, kjvm::Env());
    Zpand_PutJniEnv(env, 0);
    EXPECT_TRUE(Attached());  // not attached by the call, so not detached
    EXPECT_EQ(Zpand_GetJniEnv(nullptr), 0u);
}

TEST(JvmBinding, NativeThreadIsAttachedOnDemandAndDetachedAgain) {
    struct Seen {
        bool before = true, during = false, after = true, exitDetached = false;
        uint32_t attached = 0, second = 9;
        bool usable = false;
        std::string name;
    } seen;
    std::thread t([&seen] {
        seen.before = Attached();
        JNIEnv *env = nullptr;
        seen.attached = Zpand_GetJniEnv(&env);
        seen.during = Attached();
        JNIEnv *again = nullptr;
        seen.second = Zpand_GetJniEnv(&again);  // already attached now
        jclass cls = env != nullptr ? kjvm::FindAppClass(env, "java/lang/String") : nullptr;
        seen.usable = cls != nullptr && again == env;
        if (cls != nullptr) env->DeleteLocalRef(cls);
        seen.name = kjvm::ThreadName();
        Zpand_PutJniEnv(env, seen.attached);
        seen.after = Attached();
        // The layer's thread-exit hook leaves the machine too.
        Zpand_GetJniEnv(&env);
        Zpand_TaskExit(0, 0);
        seen.exitDetached = !Attached();
    });
    t.join();
    EXPECT_FALSE(seen.before);
    EXPECT_EQ(seen.attached, 1u);
    EXPECT_TRUE(seen.during);
    EXPECT_EQ(seen.second, 0u);
    EXPECT_TRUE(seen.usable);
    EXPECT_FALSE(seen.name.empty());
    EXPECT_FALSE(seen.after);
    EXPECT_TRUE(seen.exitDetached);
}

TEST(JvmBinding, TextRoundTripsThroughUtf8) {
    int32_t units = -1;
    // Latin, CJK and a character outside the basic plane (a surrogate pair
    // in Java, four bytes in UTF-8; the machine's modified UTF-8 would give
    // six).
    const std::string mixed =
        "Gr\xC3\xBC\xC3\x9F"
        "e \xE4\xBD\xA0\xE5\xA5\xBD \xF0\x9F\x98\x80";
    EXPECT_EQ(RoundTrip(mixed, &units), mixed);
    EXPECT_EQ(units, 5 + 1 + 2 + 1 + 2);
    EXPECT_EQ(RoundTrip("", &units), "");
    EXPECT_EQ(units, 0);
    // Bytes that are not UTF-8 come back as the replacement character.
    EXPECT_EQ(RoundTrip("a\xFFz", &units), "a\xEF\xBF\xBDz");
    EXPECT_EQ(units, 3);

    JNIEnv *env = kjvm::Env();
    jstring j = Zpand_BytesToJstring(env, mixed.c_str());
    const char *modified = env->GetStringUTFChars(j, nullptr);
    EXPECT_EQ(std::strlen(modified), mixed.size() + 2);
    env->ReleaseStringUTFChars(j, modified);
    env->DeleteLocalRef(j);
}

TEST(JvmBinding, TextConversionRefusesNulls) {
    JNIEnv *env = kjvm::Env();
    EXPECT_EQ(Zpand_BytesToJstring(env, nullptr), nullptr);
    EXPECT_EQ(Zpand_BytesToJstring(nullptr, "x"), nullptr);
    uint32_t len = 7;
    EXPECT_EQ(Zpand_JstringToBytes(env, nullptr, &len), nullptr);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(Zpand_JstringToBytes(nullptr, nullptr, nullptr), nullptr);
    EXPECT_FALSE(env->ExceptionCheck());
}

TEST(JvmBinding, LocalAddressComesFromAnInterfaceThatIsUp) {
    JNIEnv *env = kjvm::Env();
    auto ip = static_cast<jstring>(env->CallStaticObjectMethod(g_zZpandNet, g_zZpandNetGetLocalIP));
    ASSERT_FALSE(env->ExceptionCheck());
    const std::vector<std::string> local = LocalAddresses();
    if (ip == nullptr) {
        EXPECT_TRUE(local.empty());
        return;
    }
    char *text = Zpand_JstringToBytes(env, ip, nullptr);
    env->DeleteLocalRef(ip);
    ASSERT_NE(text, nullptr);
    // Compared as addresses: Java writes IPv6 without the zero-run "::".
    bool found = false;
    for (const std::string &a : local) found = found || SameAddress(a, text);
    EXPECT_TRUE(found) << text;
    std::free(text);
}

// Run with --bind-first: a host that binds the library itself before Java
// loads it is told that the binding succeeded, the Java load that follows
// changes nothing, and the natives are there.
TEST(JvmBindFirst, BindingMadeByTheHostSucceeds) {
    ASSERT_TRUE(kjvm::Loaded());
    EXPECT_EQ(kjvm::BindFirstResult(), ZOK);
    EXPECT_EQ(Zpand_GetJvm(), kjvm::Vm());
    EXPECT_NE(g_zZpandNetGetLocalIP, nullptr);
    EXPECT_NE(g_zZpandModPostDrv, nullptr);
    EXPECT_TRUE(kjvm::CallStatic(kjvm::Env(), kTimer, "doInit", "()V")) << kjvm::LastException();
}

// Run with a class path that lacks ZpandNet: binding stops at its first
// step, and the library is loaded all the same.
TEST(JvmNoNet, BindingStopsBeforeModAndTheTimerNatives) {
    ASSERT_TRUE(kjvm::Loaded());
    EXPECT_EQ(Zpand_GetJvm(), kjvm::Vm());
    EXPECT_EQ(g_zZpandNet, nullptr);
    EXPECT_EQ(g_zZpandNetGetLocalIP, nullptr);
    EXPECT_EQ(g_zZpandMod, nullptr);
    EXPECT_EQ(g_zZpandModPostDrv, nullptr);
    JNIEnv *env = kjvm::Env();
    jclass mod = kjvm::FindAppClass(env, "com/quelmar/nubo/kestro/ZpandMod");
    EXPECT_NE(mod, nullptr);  // the class is there, it was just never reached
    if (mod != nullptr) env->DeleteLocalRef(mod);
    EXPECT_FALSE(kjvm::CallStatic(env, kTimer, "doInit", "()V"));
    EXPECT_EQ(kjvm::LastException(), "java.lang.UnsatisfiedLinkError");
    // Text conversion was never bound either: it does nothing.
    EXPECT_EQ(Zpand_BytesToJstring(env, "abc"), nullptr);
    EXPECT_FALSE(env->ExceptionCheck());
}

TEST(JvmNoNet, UnboundBridgesDoNothingAndASecondLoadDoesNotRetry) {
    JNIEnv *env = kjvm::Env();
    // With an environment but no timer class the start and stop succeed
    // without a Java call.
    EXPECT_EQ(Zpand_TimerStart(10, nullptr), ZOK);
    EXPECT_EQ(Zpand_TimerStop(), ZOK);
    EXPECT_FALSE(env->ExceptionCheck());
    EXPECT_EQ(JNI_OnLoad(kjvm::Vm(), nullptr), 0x10002);
    EXPECT_EQ(g_zZpandMod, nullptr);
    EXPECT_FALSE(kjvm::CallStatic(env, kTimer, "doInit", "()V"));
}
