# SPDX-License-Identifier: GPL-2.0
# CMake toolchain for 32-bit programs that run in the guest.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(machine arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/guest.cmake)
