# The Java side: JNI headers for the library's binding sources, the jar of
# the Java classes the library binds, and (host builds) the virtual machine
# library the JVM tests link. The library itself never links libjvm: on
# Android the application's runtime provides the machine.
#
# jni.h comes from the Android NDK's sysroot on an Android build and from
# the host JDK everywhere else. The JDK's headers are the same for every
# Linux target except jni_md.h, whose only word-size dependent type is
# jlong (long on LP64, long long otherwise), so the 32-bit ARM cross build
# uses the host JDK's headers too.
find_package(Java 17 COMPONENTS Development)
if(NOT Java_JAVAC_EXECUTABLE AND NOT ANDROID)
  message(FATAL_ERROR "javac not found (install openjdk-17-jdk-headless)")
endif()

set(KESTRO_JNI_INCLUDE_DIRS "")
if(NOT ANDROID)
  get_filename_component(KESTRO_JDK_JAVAC ${Java_JAVAC_EXECUTABLE} REALPATH)
  get_filename_component(KESTRO_JDK_HOME ${KESTRO_JDK_JAVAC} DIRECTORY)
  get_filename_component(KESTRO_JDK_HOME ${KESTRO_JDK_HOME} DIRECTORY)
  find_path(KESTRO_JNI_INCLUDE jni.h PATHS ${KESTRO_JDK_HOME}/include NO_DEFAULT_PATH
            NO_CMAKE_FIND_ROOT_PATH)
  find_path(KESTRO_JNI_MD_INCLUDE jni_md.h PATHS ${KESTRO_JDK_HOME}/include/linux
            NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  if(NOT KESTRO_JNI_INCLUDE OR NOT KESTRO_JNI_MD_INCLUDE)
    message(FATAL_ERROR "JNI headers not found under ${KESTRO_JDK_HOME}/include")
  endif()
  set(KESTRO_JNI_INCLUDE_DIRS ${KESTRO_JNI_INCLUDE} ${KESTRO_JNI_MD_INCLUDE})
  # The JVM tests create a machine in-process; only a host build can run one.
  if(NOT CMAKE_CROSSCOMPILING)
    find_library(KESTRO_JVM_LIBRARY jvm PATHS ${KESTRO_JDK_HOME}/lib/server NO_DEFAULT_PATH)
  endif()
endif()

# The classes, compiled for the Java 8 language level that Android's tool
# chain accepts and against java.* only, so the same jar runs on a desktop
# machine and in an application.
# (An Android build without a JDK on the build machine builds the library
# alone; the application then compiles the sources of java/ itself.)
file(GLOB KESTRO_JAVA_SOURCES CONFIGURE_DEPENDS
     ${CMAKE_CURRENT_SOURCE_DIR}/java/com/quelmar/nubo/kestro/*.java)
if(Java_JAVAC_EXECUTABLE)
  include(UseJava)
  set(CMAKE_JAVA_COMPILE_FLAGS --release 8 -Xlint:all,-options -Werror)
  add_jar(kestro_java SOURCES ${KESTRO_JAVA_SOURCES} OUTPUT_NAME kestro
          OUTPUT_DIR ${CMAKE_BINARY_DIR}/java)
else()
  message(WARNING "javac not found: the jar of the Java classes is not built")
endif()
