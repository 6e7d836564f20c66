# SPDX-License-Identifier: GPL-2.0
# What the toolchains of the guest's programs share; machine is the cross compiler's
# prefix. The programs are static, as the guest has no libraries.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${machine}-gcc)
set(CMAKE_CXX_COMPILER ${machine}-g++)
# Segments that a kernel with pages of up to 64 KiB can map.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -Wl,-z,max-page-size=65536")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
