# 32-bit ARM (hard float) cross build with Debian's cross compiler; the
# tests run under qemu-arm with the cross sysroot.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Debian's libjemalloc2:armhf installs only the runtime library.
set(JEMALLOC_LIBRARY /usr/lib/arm-linux-gnueabihf/libjemalloc.so.2 CACHE FILEPATH "")
# The C library must come from the same sysroot as the loader: Debian's
# libc6:armhf (pulled in by libjemalloc2:armhf) is a different build, and
# mixing the two crashes at the first thread start.
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-arm;-L;/usr/arm-linux-gnueabihf;-E;LD_LIBRARY_PATH=/usr/arm-linux-gnueabihf/lib)
