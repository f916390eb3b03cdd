# The 32-bit ARM target (armhf) with Debian's cross compiler; the tests run
# under user-mode QEMU with the target's libraries.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(PK_TARGET_SYSROOT /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH ${PK_TARGET_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${PK_TARGET_SYSROOT})

# pkg-config answers for the target, never with the host's packages: Debian's
# multiarch :armhf development packages, or those unpacked into a folder of their
# own (scripts/armhf-netconf-root), whose multiarch headers and libraries the
# compiler, the linker and QEMU then need too. Plain variables, not cached
# flags, so that the folder also takes effect in an existing build folder.
set(PK_TARGET_EXTRA_ROOT "" CACHE PATH "Folder with the target's packages unpacked, for a machine without :armhf packages")
# The compiler checks read this file again in the same process: they must see the same folder.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES PK_TARGET_EXTRA_ROOT)
set(_pk_multiarch arm-linux-gnueabihf)
if(PK_TARGET_EXTRA_ROOT)
  set(_pk_libdirs ${PK_TARGET_EXTRA_ROOT}/usr/lib/${_pk_multiarch} ${PK_TARGET_EXTRA_ROOT}/lib/${_pk_multiarch})
  set(ENV{PKG_CONFIG_SYSROOT_DIR} ${PK_TARGET_EXTRA_ROOT})
  set(ENV{PKG_CONFIG_LIBDIR} ${PK_TARGET_EXTRA_ROOT}/usr/lib/${_pk_multiarch}/pkgconfig:${PK_TARGET_EXTRA_ROOT}/usr/share/pkgconfig)
  list(APPEND CMAKE_FIND_ROOT_PATH ${PK_TARGET_EXTRA_ROOT})
  set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES ${PK_TARGET_EXTRA_ROOT}/usr/include/${_pk_multiarch})
  list(TRANSFORM _pk_libdirs PREPEND "-Wl,-rpath-link," OUTPUT_VARIABLE _pk_rpath_links)
  string(JOIN " " CMAKE_CXX_STANDARD_LIBRARIES ${_pk_rpath_links})
  list(JOIN _pk_libdirs ":" _pk_library_path)
  list(APPEND CMAKE_CROSSCOMPILING_EMULATOR -E LD_LIBRARY_PATH=${_pk_library_path})
else()
  unset(ENV{PKG_CONFIG_SYSROOT_DIR})
  set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${_pk_multiarch}/pkgconfig:/usr/share/pkgconfig)
endif()
