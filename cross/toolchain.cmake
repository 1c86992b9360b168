# For a machine of another architecture, whose presets set CROSS_TRIPLET, CROSS_PROCESSOR and
# CROSS_SYSROOT: Debian's cross compiler, Debian's libraries in the sysroot, and qemu-user to run what
# is built.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CROSS_TRIPLET CROSS_PROCESSOR CROSS_SYSROOT)
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${CROSS_PROCESSOR})

set(CMAKE_FIND_ROOT_PATH ${CROSS_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_LIBRARY_ARCHITECTURE ${CROSS_TRIPLET})
set(ENV{PKG_CONFIG_LIBDIR} ${CROSS_SYSROOT}/usr/lib/${CROSS_TRIPLET}/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CROSS_SYSROOT})

# Nothing built here meets what an older compiler has built.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

# The libraries' own libraries are found by this, at link time and by the emulated loader.
set(libraries /usr/${CROSS_TRIPLET}/lib:${CROSS_SYSROOT}/usr/lib/${CROSS_TRIPLET}:${CROSS_SYSROOT}/lib/${CROSS_TRIPLET})
set(CMAKE_SKIP_RPATH ON)
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-Wl,--disable-new-dtags,-rpath,${libraries},-rpath-link,${libraries}")

# A bus daemon, a shell and the tests start programs by their paths, and this machine's kernel runs
# none of another architecture: what stands at a program's path is a script that has it emulated.
get_property(checking GLOBAL PROPERTY IN_TRY_COMPILE)
if(NOT checking)
    set(CMAKE_CXX_LINK_EXECUTABLE
        "<CMAKE_CXX_COMPILER> <FLAGS> <CMAKE_CXX_LINK_FLAGS> <LINK_FLAGS> <OBJECTS> -o <TARGET>.elf <LINK_LIBRARIES>"
        "${CMAKE_CURRENT_LIST_DIR}/emulate ${CROSS_PROCESSOR} /usr/${CROSS_TRIPLET} <TARGET>")
endif()
