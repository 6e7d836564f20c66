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

# run_logged LOG WHAT COMMAND...: the command's output goes to LOG. A failure
# shows the end of it above the one line that says what failed.
run_logged()
{
	local log=$1 what=$2
	shift 2
	mkdir -p "$(dirname "$log")"
	if ! "$@" >"$log" 2>&1 </dev/null; then
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
	apt-get -qq -y --no-install-recommends install "${missing[@]}" >"$build/logs/install.log" 2>&1 ||
		die "apt-get could not install ${missing[*]}; see $build/logs/install.log"
}

# cmake_build DIRECTORY SOURCE OPTION...: configures and builds. A directory that
# was configured for another place of the project is made anew.
cmake_build()
{
	local directory=$1 source=$2 name=${1##*/}
	shift 2
	grep -qsx "CMAKE_HOME_DIRECTORY:INTERNAL=$source" "$directory/CMakeCache.txt" ||
		rm -rf "$directory"
	run_logged "$build/logs/$name-configure.log" "configuring $name" \
		cmake -S "$source" -B "$directory" "$@"
	run_logged "$build/logs/$name-build.log" "building $name" \
		cmake --build "$directory" --parallel "$(nproc)"
}
