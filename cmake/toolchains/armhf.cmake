# 32-bit ARM (armhf) with Debian's cross compiler; built programs run under
# qemu-arm, which CMake and CTest use through the cross-compiling emulator.
#   cmake -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/armhf.cmake ...
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(KEVRA_ARM_TRIPLE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${KEVRA_ARM_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${KEVRA_ARM_TRIPLE}-g++)
set(KEVRA_ARM_SYSROOT /usr/${KEVRA_ARM_TRIPLE})
set(CMAKE_FIND_ROOT_PATH ${KEVRA_ARM_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Header-only libraries (CLI11) are the same for every target.
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${KEVRA_ARM_SYSROOT})
