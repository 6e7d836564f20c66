#!/bin/sh
# SPDX-License-Identifier: GPL-2.0
#
# Job: the test programs for the firmware that booted this guest (the list is
# /programs), one after the other. Lines on the console say where the output of
# each begins and ends, and its exit code.
. /guest.sh

firmware=device-tree
[ ! -d /sys/firmware/acpi/tables ] || firmware=acpi

run_program()
{
	local program=$1 filter=$2 code=0
	[ -x "/$program" ] || { echo "there is no program /$program"; return 1; }
	printf '\nPROGRAM %s begins\n' "$program"
	"/$program" --gtest_color=no --gtest_filter="$filter" </dev/null || code=$?
	printf '\nPROGRAM %s ended with %s\n' "$program" "$code"
	return $code
}

load_surroundings || exit 1
failed=0
while read -r wanted program filter; do
	[ "$wanted" = $firmware ] || continue
	run_program "$program" "$filter" || failed=1
done </programs
unload_surroundings || exit 1
exit $failed
