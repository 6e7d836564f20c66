# SPDX-License-Identifier: GPL-2.0
# shellcheck shell=bash
#
# What every script here shares: where the project is, how progress is shown
# and how a failure is reported. Sourced, never run.

set -euo pipefail

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
build=$project/build
cache=$build/cache
script_name=${0##*/}

# Debian's arm64 kernels that the modules are built and tested for, as our options
# name them: series, and flavour. The first is meant where none is named.
kernel_names=(6.1 6.1-rt 6.12 6.12-rt 6.12-16k)

newest_kernel=6.12
default_kernel=$cache/kernels/${kernel_names[0]}

is_kernel_name()
{
	local name
	for name in "${kernel_names[@]}"; do
		[ "$name" != "$1" ] || return 0
	done
	return 1
}

# Scripts that call each other count from one start.
export INTR_STARTED=${INTR_STARTED:-$EPOCHSECONDS}

# Progress goes to standard error, so that a script's output stays its result.
say()
{
	printf '==> [%3ds] %s\n' $((EPOCHSECONDS - INTR_STARTED)) "$*" >&2
}

# die WHAT FAILED - WHAT TO DO: always one line.
die()
{
	printf '%s: %s\n' "$script_name" "$*" >&2
	exit 1
}

progress_seconds=10

# report_progress WHAT LOG: a line every few seconds with the last line of LOG,
# for as long as this script lives.
report_progress()
{
	local what=$1 log=$2 reported=$EPOCHSECONDS line
	while sleep 1 && kill -0 $$ 2>/dev/null; do
		[ $((EPOCHSECONDS - reported)) -ge $progress_seconds ] || continue
		reported=$EPOCHSECONDS
		line=$(tail -c 2000 "$log" 2>/dev/null | tr -d '\r' | grep -v '^[[:space:]]*$' | tail -n 1) || line=
		say "$what: ${line:0:90}"
	done
}

# with_progress LOG WHAT COMMAND...: runs the command, whose output goes to LOG, and
# reports its progress. The command's exit code.
with_progress()
{
	local log=$1 what=$2 reporter code=0
	shift 2
	report_progress "$what" "$log" &
	reporter=$!
	"$@" || code=$?
	kill $reporter 2>/dev/null || true
	wait $reporter 2>/dev/null || true
	return $code
}

# to_log LOG COMMAND...: the command with its output in LOG and no input.
to_log()
{
	local log=$1
	shift
	"$@" >"$log" 2>&1 </dev/null
}

# run_logged LOG WHAT COMMAND...: the command's output goes to LOG. A failure
# shows the end of it above the one line that says what failed.
run_logged()
{
	local log=$1 what=$2
	shift 2
	mkdir -p "$(dirname "$log")"
	: >"$log"
	if ! with_progress "$log" "$what" to_log "$log" "$@"; then
		tail -n 40 "$log" >&2
		die "$what failed; the whole output is in $log"
	fi
}

# install_missing PACKAGE...: the machine's own Debian packages.
install_missing()
{
	local missing=() package
	for package in "$@"; do
		dpkg-query -W -f '${Status}\n' "$package" 2>/dev/null | grep -q '^install ok installed' ||
			missing+=("$package")
	done
	[ ${#missing[@]} -eq 0 ] && return
	[ "$(id -u)" -eq 0 ] ||
		die "packages are missing; as root: apt-get install ${missing[*]}"
	say "installing ${missing[*]}"
	export DEBIAN_FRONTEND=noninteractive
	apt-get -qq update >&2 ||
		die "apt-get update failed; repair the machine's package sources or network, then try again"
	with_progress "$build/logs/install.log" "installing" to_log "$build/logs/install.log" \
		apt-get -qq -y --no-install-recommends install "${missing[@]}" ||
		die "apt-get could not install ${missing[*]}; see $build/logs/install.log"
}

# write_if_changed FILE: from standard input; what is made of the file is not made anew.
write_if_changed()
{
	local file=$1 text
	text=$(cat)
	mkdir -p "$(dirname "$file")"
	[ "$(cat "$file" 2>/dev/null)" = "$text" ] || printf '%s\n' "$text" >"$file"
}

# make_modules KERNEL OBJECTS [VARIABLE=VALUE...]: the modules of a build directory, for a
# kernel's prepared build directory. Modules without BTF: making it stumbles over C++.
make_modules()
{
	local kernel=$1 objects=$2
	shift 2
	make -j"$(nproc)" -C "$kernel" M="$objects" ARCH=arm64 CROSS_COMPILE=aarch64-linux-gnu- \
		DEB_HOST_GNU_TYPE=aarch64-linux-gnu DEB_HOST_ARCH=arm64 \
		DEB_BUILD_ARCH="$(dpkg --print-architecture)" CONFIG_DEBUG_INFO_BTF_MODULES= "$@" modules
}

# cmake_build DIRECTORY SOURCE "TARGET..." OPTION...: configures, and builds these
# targets, or all without any. A directory that was configured for another place of
# the project is made anew.
cmake_build()
{
	local directory=$1 source=$2 name=${1##*/} targets
	read -ra targets <<<"${3:-all}"
	shift 3
	grep -qsx "CMAKE_HOME_DIRECTORY:INTERNAL=$source" "$directory/CMakeCache.txt" ||
		rm -rf "$directory"
	run_logged "$build/logs/$name-configure.log" "configuring $name" \
		cmake -S "$source" -B "$directory" "$@"
	run_logged "$build/logs/$name-build.log" "building $name" \
		cmake --build "$directory" --parallel "$(nproc)" --target "${targets[@]}"
}
