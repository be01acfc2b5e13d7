# 64-bit ARM: any board with Debian's arm64.
set(house_architecture arm64)
set(house_triplet aarch64-linux-gnu)
set(house_emulator qemu-aarch64)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
include("${CMAKE_CURRENT_LIST_DIR}/debian_arm.cmake")
