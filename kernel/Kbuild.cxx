# SPDX-License-Identifier: GPL-2.0
#
# How the kernel's build system compiles the C++ objects of a module.
#
# The flags are the kernel's own for this very object: $(_c_flags) rather than
# KBUILD_CFLAGS, because the sanitizers of a checking kernel are added object by
# object, and code built without them is code that no checker sees. Guard
# offsets, branch protection and the ban on vector registers come with them.

# The C++ compiler of the C compiler that the kernel was built with.
cxx := $(subst gcc,g++,$(CC))

cxx-c-only := -std=% -Wstrict-prototypes -Werror=strict-prototypes \
	-Wimplicit-function-declaration -Werror=implicit-function-declaration \
	-Wimplicit-int -Werror=implicit-int -Wdeclaration-after-statement \
	-Wno-pointer-sign -Werror=incompatible-pointer-types \
	-Wmissing-prototypes -Wold-style-definition \
	-Wdesignated-init -Werror=designated-init \
	-Wno-override-init $(c-warnings-off)

# Nothing of a C++ library: stddef.h comes from the compiler itself. Atomics are
# inlined, as the kernel does not have the compiler's out-of-line helpers.
cxx-compiler-headers := $(shell $(cxx) -print-file-name=include)

cxx-flags = -Wp,-MMD,$(depfile) $(filter-out $(cxx-c-only),$(_c_flags)) $(modkern_cflags) \
	-std=c++20 -ffreestanding -nostdinc -nostdinc++ -isystem $(cxx-compiler-headers) \
	-fno-exceptions -fno-rtti -fno-threadsafe-statics -mno-outline-atomics \
	-Wall -Wextra -Werror

quiet_cmd_cxx_o_cpp = CXX $(quiet_modtag)  $@
      cmd_cxx_o_cpp = $(cxx) $(cxx-flags) -c -o $@ $<

$(addprefix $(obj)/src/,$(driver)): $(obj)/%.o: $(src)/%.cpp FORCE
	$(call if_changed_dep,cxx_o_cpp)
