# Toolchain of the android-* presets: the Android NDK's own toolchain file,
# found through the ANDROID_NDK environment variable, for the ABI the
# preset names (armeabi-v7a, the product's, by default).
if("$ENV{ANDROID_NDK}" STREQUAL "")
  message(FATAL_ERROR
    "The android presets build with an Android NDK, and ANDROID_NDK is not set.\n"
    "Install an NDK (r23 or later; Android Studio's SDK manager puts it under "
    "<sdk>/ndk/<version>) and point ANDROID_NDK at it, for example:\n"
    "  ANDROID_NDK=$HOME/Android/Sdk/ndk/26.3.11579264 cmake --preset android-armv7\n"
    "The host presets (asan, tsan, arm, release) need no NDK.")
endif()
set(KESTRO_NDK_TOOLCHAIN "$ENV{ANDROID_NDK}/build/cmake/android.toolchain.cmake")
if(NOT EXISTS "${KESTRO_NDK_TOOLCHAIN}")
  message(FATAL_ERROR
    "ANDROID_NDK=$ENV{ANDROID_NDK} does not look like an Android NDK: "
    "build/cmake/android.toolchain.cmake is not there.")
endif()
if(NOT ANDROID_ABI)
  set(ANDROID_ABI armeabi-v7a)
endif()
if(NOT ANDROID_PLATFORM)
  set(ANDROID_PLATFORM android-23)
endif()
include("${KESTRO_NDK_TOOLCHAIN}")
