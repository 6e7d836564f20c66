#!/bin/sh
# SPDX-License-Identifier: GPL-2.0
# Job: the demonstration.
. /guest.sh

load_surroundings || exit 1
/intr-demo /board
code=$?
unload_surroundings || exit 1
exit $code
