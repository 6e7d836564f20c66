# SPDX-License-Identifier: GPL-2.0
#
# What jobs in the guest share. Sourced.

modules=/modules
control=/proc/diag

# The driver's surroundings, in the order of who calls whom; the driver comes
# and goes between them and its link to the test client. intr_backplane is
# optional, and changes what the driver reads.
surroundings="intr_strings intr_diag intr_log intr_cpld intr_xml intr_monitor intr_board
	intr_client"

load()
{
	local name
	for name in "$@"; do
		insmod "$modules/$name.ko" || return 1
	done
}

unload()
{
	local name
	for name in "$@"; do
		rmmod "$name" || return 1
	done
}

load_surroundings()
{
	load $surroundings
}

unload_surroundings()
{
	local name reversed=
	for name in $surroundings; do
		reversed="$name $reversed"
	done
	unload $reversed
}

load_driver()
{
	load intr intr_link
}

unload_driver()
{
	unload intr_link intr
}

# ctl FILE ARGUMENTS...: one control command; prints its reply, or, where the command
# has none, what the file shows.
ctl()
{
	local file=$1 reply
	shift
	exec 9<>"$control/$file" || return 1
	if echo "$*" 2>/dev/null >&9; then
		reply=$(cat <&9)
		exec 9>&-
		[ -z "$reply" ] || echo "$reply"
		return 0
	fi
	cat <&9 >&2
	echo >&2
	exec 9>&-
	return 1
}

# A healthy kernel says nothing of what /complaints lists. Prints what it said; true
# when silent.
kernel_complaints()
{
	local found=0
	if ! sed '/^#/d' /complaints >/tmp/complaints || [ ! -s /tmp/complaints ]; then
		echo "there is no list of complaints to look for"
		found=1
	elif dmesg | grep -nFf /tmp/complaints; then
		echo "---- kernel log"
		dmesg | tail -n 150
		found=1
	fi
	checkers_silent || found=1
	return $found
}

# What a kernel with checkers knows beyond its log.
checkers_silent()
{
	local tainted=$(cat /proc/sys/kernel/tainted) leaks=/sys/kernel/debug/kmemleak silent=0
	local own=$((4096 + 8192))	# modules from outside, unsigned

	if [ $((tainted & ~own)) -ne 0 ]; then
		echo "the kernel is tainted: $tainted"
		silent=1
	fi
	if [ -e /proc/lockdep_stats ] && ! grep -q 'debug_locks: *1' /proc/lockdep_stats; then
		echo "lock checking has stopped"
		silent=1
	fi
	if [ -e $leaks ]; then
		# An object counts when it is 5 s old, and never in the first scan.
		sleep 7
		echo scan >$leaks
		echo scan >$leaks
		if [ -n "$(head -n 1 $leaks)" ]; then
			head -n 60 $leaks
			silent=1
		fi
	fi
	return $silent
}
