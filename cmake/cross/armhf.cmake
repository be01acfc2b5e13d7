# 32-bit ARM with hardware floating point (ARMv7): boards with Debian's armhf.
set(house_architecture armhf)
set(house_triplet arm-linux-gnueabihf)
set(house_emulator qemu-arm)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
include("${CMAKE_CURRENT_LIST_DIR}/debian_arm.cmake")
