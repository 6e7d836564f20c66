# SPDX-License-Identifier: GPL-2.0
# CMake toolchain for programs that run in the guest.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(machine aarch64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/guest.cmake)
